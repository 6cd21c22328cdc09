"""Attributes of the wrong kind end each operation in an exception, and leak nothing."""

from __future__ import annotations

import os
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.hostile import Index, Own
from pinned_root.outcomes import Failure, Value, outcome_of
from support.descriptors import descriptors_kept
from support.failures import fails_with
from support.naming import named

PATH = "sub/inner.bin"

OPERATIONS: dict[str, Callable[[Any], object]] = {
    "read": lambda root: root.read_regular_file(PATH, label="file"),
    "read if present": lambda root: root.read_regular_file_if_present(PATH, label="file"),
    "hash": lambda root: root.hash_regular_file(PATH, label="file"),
    "stat": lambda root: root.stat_regular_file(PATH, label="file"),
    "parent": lambda root: os.close(root._open_parent(PATH, label="file", create=True)[0]),
    "proof": lambda root: root.assert_root_unchanged(),
    "child": lambda root: root.open_contained_root("sub", label="child").close(),
}


@pytest.mark.parametrize("operation", OPERATIONS)
@pytest.mark.parametrize(
    ("descriptor", "kinds"),
    [
        ("text", {TypeError}),
        (b"3", {TypeError}),
        (1.5, {TypeError}),
        ((), {TypeError}),
        (10**30, {OverflowError}),
        (-(10**30), {OverflowError}),
        (-1, {OSError}),
        (2**31 - 1, {OSError}),
        (Index(Own), {Own}),
        (Index("text"), {TypeError}),
    ],
    ids=named,
)
def test_a_pin_that_is_no_descriptor_fails_as_the_host_does(
    tree: Path, operation: str, descriptor: object, kinds: set[type[Exception]]
) -> None:
    root: Any = PinnedRoot(tree)
    real, root._descriptor = root._descriptor, descriptor
    with descriptors_kept():
        found = outcome_of(lambda: OPERATIONS[operation](root))
    assert isinstance(found, Failure) and found.kind in kinds
    root._descriptor = real
    root.close()


def test_any_pin_but_none_is_handed_out_as_it_is(root: Any) -> None:
    real = root._descriptor
    values: tuple[object, ...] = ("text", 0.5, [], real)
    for value in values:
        root._descriptor = value
        assert root._require_descriptor() is value


@pytest.mark.parametrize(
    "path", [None, "/", b"/", 5, 0, "sub", [], type("P", (), {"parts": 5})()], ids=named
)
def test_a_path_attribute_that_is_no_path_fails_the_proof(root: Any, path: object) -> None:
    root.path = path
    with descriptors_kept():
        found = outcome_of(root.assert_root_unchanged)
    assert isinstance(found, Failure) and found.kind in {AttributeError, TypeError}


@pytest.mark.parametrize("part", [None, 5, 1.5, []], ids=named)
def test_a_part_that_is_no_text_fails_the_proof_and_leaks_nothing(
    root: Any, part: object
) -> None:
    root.path = type("P", (), {"parts": ("/", "tmp", part)})()
    with descriptors_kept(), fails_with(TypeError, None):
        root.assert_root_unchanged()


@pytest.mark.parametrize("components", [None, 5, (None,), (5,), ("sub", 1.5), (["sub"],)], ids=named)
def test_components_that_are_no_texts_fail_the_proof_and_leak_nothing(
    root: Any, components: object
) -> None:
    child = root.open_contained_root("sub", label="child")
    child._anchor_components = components
    with descriptors_kept(), fails_with(TypeError, None):
        child.assert_root_unchanged()
    with descriptors_kept(), fails_with(TypeError, None):
        child.open_contained_root("deep", label="child")
    child.close()


@pytest.mark.parametrize("anchor", ["text", 1.5, 10**30, -1, 2**31 - 1, Index(Own)], ids=named)
def test_an_anchor_that_is_no_descriptor_fails_the_proof(root: Any, anchor: object) -> None:
    child = root.open_contained_root("sub", label="child")
    real, child._anchor_descriptor = child._anchor_descriptor, anchor
    with descriptors_kept():
        found = outcome_of(child.assert_root_unchanged)
        assert isinstance(found, Failure)
        assert found.kind in {TypeError, OverflowError, Own, ValueError}
        assert isinstance(
            outcome_of(lambda: child.open_contained_root("deep", label="x")), Failure
        )
    child._anchor_descriptor = real
    child.close()


@pytest.mark.parametrize("garbage", ["text", 1.5, 10**30, -1, [], Index(Own)], ids=named)
def test_closing_garbage_clears_it_and_still_closes_the_other(root: Any, garbage: object) -> None:
    for name in ("_descriptor", "_anchor_descriptor"):
        with descriptors_kept():
            child = root.open_contained_root("sub", label="child")
            os.close(getattr(child, name))
            setattr(child, name, garbage)
            assert isinstance(outcome_of(child.close), Failure)
            assert (child._descriptor, child._anchor_descriptor) == (None, None)
            child.close()


UNTOUCHED = {("path", "parent"), ("path", "close"), ("_anchor_descriptor", "parent")}


@pytest.mark.parametrize("operation", [*OPERATIONS, "close"])
@pytest.mark.parametrize("name", ["path", "_descriptor", "_anchor_descriptor"])
def test_an_attribute_that_was_deleted_is_missed_by_those_that_need_it(
    tree: Path, name: str, operation: str
) -> None:
    with descriptors_kept():
        root = PinnedRoot(tree)
        value = getattr(root, name)
        delattr(root, name)
        actions: dict[str, Callable[[Any], object]] = {
            **OPERATIONS,
            "close": lambda root: root.close(),
        }
        action = actions[operation]
        found = outcome_of(lambda: action(root))
        setattr(root, name, value)
        root.close()
    if (name, operation) in UNTOUCHED:
        assert isinstance(found, Value)
    else:
        assert isinstance(found, Failure)
        assert found.kind is AttributeError and f"'{name}'" in found.text


def test_an_instance_that_was_never_initialised_misses_its_attributes() -> None:
    root = PinnedRoot.__new__(PinnedRoot)
    operations: list[Callable[[Any], object]] = [
        *OPERATIONS.values(),
        lambda root: root.close(),
    ]
    for operation in operations:
        with descriptors_kept(), fails_with(AttributeError, None):
            operation(root)
    with fails_with(AttributeError, None), root:
        pass


def test_a_root_that_closes_itself_midway_ends_in_an_exception(tree: Path) -> None:
    class Closing(PinnedRoot):
        """A root that closes itself whenever its pin is asked for."""

        def _require_descriptor(self) -> int:
            found: int = super()._require_descriptor()
            self.close()
            return found

    for name, operation in OPERATIONS.items():
        with descriptors_kept():
            root = Closing(tree)
            found = outcome_of(lambda: operation(root))
            root.close()
        assert isinstance(found, Failure), name
        assert found.kind in {OSError, RuntimeError, ValueError}
