"""Every step of another operation goes through the instance, in the form that is promised."""

from __future__ import annotations

import os
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.failures import fails_with
from windows.conftest import Pin
from windows.substitute import Call, SubstituteBoundary
from windows.volume import DIRECTORY, Volume
from windows.walked import CLOSED, ROOT_CHANGED, ROOT_UNSAFE, handles_kept

Root: Any = client_manifest._WindowsPinnedRoot

OPERATIONS = (
    "__init__",
    "close",
    "assert_root_unchanged",
    "open_contained_root",
    "_open_absolute_directory",
    "_open_directory_components",
    "_require_descriptor",
    "_require_safe_directory",
    "_require_safe_regular",
    "_open_parent",
    "_assert_replaceable_leaf",
    "_assert_path_matches_regular_file",
    "_assert_parent_path_matches",
    "_assert_directory_path_matches",
    "_assert_leaf_missing",
)


def recording() -> tuple[Any, list[Call]]:
    """A subclass that notes each call of an operation, and the list that it notes them in."""
    calls: list[Call] = []

    def noting(name: str) -> Any:
        base = getattr(Root, name)

        def operation(self: Any, *args: Any, **kwargs: Any) -> Any:
            calls.append(Call(name, args, kwargs))
            return base(self, *args, **kwargs)

        return operation

    return type("Recording", (Root,), {name: noting(name) for name in OPERATIONS}), calls


@pytest.fixture
def root(planted: Volume, boundary: SubstituteBoundary) -> Any:
    kind, calls = recording()
    root = kind("C:\\data", create=True, _boundary=boundary)
    root.calls = calls
    yield root
    root.close()


def test_pinning_opens_through_the_instance(root: Any) -> None:
    handles = [call.args[0] for call in root.calls if call.name == "_require_safe_directory"]
    assert root.calls == [
        ("__init__", ("C:\\data",), {"create": True, "_boundary": root._boundary}),
        ("_open_absolute_directory", (root.path,), {"create": True}),
        ("_require_safe_directory", (handles[0], "\\\\?\\C:\\"), {}),
        ("_require_safe_directory", (root._descriptor, "C:\\data"), {}),
    ]


def test_the_proof_walks_through_the_instance(root: Any) -> None:
    root.calls.clear()
    root.assert_root_unchanged()
    assert root.calls[1] == ("_open_absolute_directory", (root.path,), {"create": False})


def test_a_contained_root_is_opened_and_proved_through_both_instances(root: Any) -> None:
    root.calls.clear()
    child = root.open_contained_root("sub/deep", label="what")
    names = [call.name for call in root.calls if call.name != "_require_safe_directory"]
    components = {"label": "what"}, (child._anchor_handle, ("sub", "deep"))
    assert names == [
        "open_contained_root",
        "assert_root_unchanged",
        "_open_absolute_directory",
        "_require_descriptor",
        "_open_directory_components",
        "assert_root_unchanged",
        "_open_directory_components",
    ]
    walks = [call for call in root.calls if call.name == "_open_directory_components"]
    assert [(call.kwargs, call.args) for call in walks] == [components, components]
    shown = [call.args[1] for call in root.calls if call.name == "_require_safe_directory"]
    assert shown == ["\\\\?\\C:\\", "C:\\data", *["sub/deep"] * 4]
    child.close()


def test_a_contained_root_of_a_contained_root_needs_no_descriptor(root: Any) -> None:
    with root.open_contained_root("sub", label="first") as first:
        root.calls.clear()
        with first.open_contained_root("deep", label="second"):
            assert "_require_descriptor" not in [call.name for call in root.calls]


def test_a_child_that_fails_its_proof_is_closed_through_the_instance(
    planted: Volume, root: Any
) -> None:
    root._boundary.hook("identity", 2, after=lambda: planted.replace("data/sub", DIRECTORY))
    root.calls.clear()
    with handles_kept(planted), fails_with(ValueError, ROOT_CHANGED):
        root.open_contained_root("sub", label="what")
    assert root.calls[-1] == ("close", (), {})


def test_an_overridden_proof_of_the_child_is_the_one_that_counts(
    planted: Volume, boundary: SubstituteBoundary
) -> None:
    class Refusing(Root):  # type: ignore[misc]
        def assert_root_unchanged(self) -> None:
            if self._anchor_handle is not None:
                raise KeyError("mine")

    root = Refusing("C:\\data", _boundary=boundary)
    with handles_kept(planted), pytest.raises(KeyError):
        root.open_contained_root("sub", label="what")
    root.close()


def test_the_parents_walk_goes_through_the_instance(planted: Volume, root: Any) -> None:
    root.calls.clear()
    parent, _ = root._open_parent("sub/x", label="what", create=True)
    assert root.calls == [
        ("_open_parent", ("sub/x",), {"label": "what", "create": True}),
        ("_require_descriptor", (), {}),
        ("_require_safe_directory", (parent, "sub/x"), {}),
    ]
    planted.close(parent)


def parent_of(path: str) -> Call:
    return Call("_open_parent", (path,), {"label": "what", "create": False})


def test_the_leaf_proofs_go_through_the_instance(planted: Volume, root: Any) -> None:
    entry = os.fstat(planted.node("data/sub/file").backing)
    root.calls.clear()
    root._assert_path_matches_regular_file("sub/file", label="what", expected_stat=entry)
    assert root.calls[1] == parent_of("sub/file")
    assert root.calls[-1][0] == "_require_safe_regular"
    assert root.calls[-1].args[1:] == ("sub/file", "what")
    root.calls.clear()
    root._assert_leaf_missing("sub/none", label="what")
    assert root.calls[1] == parent_of("sub/none")
    root.calls.clear()
    root._assert_replaceable_leaf(root._descriptor, "file", safe_path="shown", allow_replace=True)
    assert [call.name for call in root.calls] == [
        "_assert_replaceable_leaf",
        "_require_safe_regular",
    ]
    assert root.calls[1].args[1:] == ("shown", "contained file destination")


def test_the_ancestor_proofs_go_through_the_instance(planted: Volume, root: Any) -> None:
    handle = root._open_directory_components(root._descriptor, ("sub",), label="x")
    root.calls.clear()
    root._assert_parent_path_matches("sub/x", expected_parent=handle, label="what")
    assert root.calls[1] == parent_of("sub/x")
    root.calls.clear()
    root._assert_directory_path_matches("sub", expected_directory=handle, label="what")
    assert root.calls[1:3] == [parent_of("sub"), ("_require_descriptor", (), {})]
    assert root.calls[-1].name == "_require_safe_directory"
    assert root.calls[-1].args[1:] == ("sub",)
    root.calls.clear()
    with pytest.raises(ValueError):
        root._assert_directory_path_matches("", expected_directory=handle, label="what")
    assert [call.name for call in root.calls[1:]] == ["_require_descriptor"]
    planted.close(handle)


def test_an_attribute_of_the_instance_goes_before_the_class(planted: Volume, pin: Pin) -> None:
    root = pin("C:\\data")
    other = pin("C:\\beside")
    root._require_descriptor = other._require_descriptor
    parent, _ = root._open_parent("sub/x", label="what", create=False)
    assert planted.path_of(parent) == "beside/sub"
    planted.close(parent)


def test_a_parent_from_an_override_is_closed_by_the_proof(planted: Volume, pin: Pin) -> None:
    root, other = pin("C:\\data"), pin("C:\\beside")
    root._open_parent = other._open_parent
    entry = os.fstat(planted.node("beside/sub/deep/file").backing)
    with handles_kept(planted):
        root._assert_path_matches_regular_file("sub/deep/file", label="what", expected_stat=entry)
        root._assert_leaf_missing("sub/none", label="what")


def test_an_override_that_refuses_nothing_lets_a_link_be_walked_to(
    planted: Volume, pin: Pin
) -> None:
    root = pin()
    root._require_safe_directory = lambda handle, path: None
    handle = root._open_directory_components(root._descriptor, ("junction",), label="what")
    assert planted.path_of(handle) == "data/junction"
    planted.close(handle)


@pytest.mark.parametrize("kind", [OSError, FileNotFoundError, ValueError, UnicodeError])
def test_what_an_overridden_walk_raises_is_an_unsafe_root(pin: Pin, kind: type[Exception]) -> None:
    error = kind("mine")

    def walk(path: object, *, create: bool) -> int:
        raise error

    root = pin()
    root._open_absolute_directory = walk
    with fails_with(ValueError, ROOT_UNSAFE, cause=kind) as caught:
        root.assert_root_unchanged()
    assert caught.error.__cause__ is error


def test_what_else_an_overridden_walk_raises_passes(pin: Pin) -> None:
    def walk(path: object, *, create: bool) -> int:
        raise KeyError("mine")

    root = pin()
    root._open_absolute_directory = walk
    with fails_with(KeyError, "'mine'"):
        root.assert_root_unchanged()


def test_a_root_whose_descriptor_is_taken_away_is_closed(planted: Volume, pin: Pin) -> None:
    root = pin()
    handle, root._descriptor = root._descriptor, None
    with fails_with(RuntimeError, CLOSED):
        root._require_descriptor()
    planted.close(handle)
