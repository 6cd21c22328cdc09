"""Writes and updates meet values that lie or raise with a result or their own failure, no crash."""

from __future__ import annotations

import errno
import os
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.hostile import Index, Own, raise_own
from pinned_root.outcomes import Failure, outcome_of
from pinned_root.staging import EXISTS, names_in, staged_below, strays_closed
from support.descriptors import descriptors_kept
from support.failures import fails_with
from support.naming import named

PATH = "sub/inner.bin"

Operation = Callable[[Any, Any], object]

OPERATIONS: dict[str, Operation] = {
    "write": lambda root, path: root.write_atomic(path, b"payload", allow_replace=True),
    "update": lambda root, path: root.open_regular_file_for_update(path, create=True).close(),
}

every_operation = pytest.mark.parametrize("operation", OPERATIONS.values(), ids=OPERATIONS)

METHODS = [
    ("__eq__", "__ne__", "__hash__"),
    ("__contains__", "__len__", "__iter__", "__getitem__"),
    ("strip", "startswith", "endswith", "split"),
    ("__format__", "__str__", "__repr__"),
    ("__bool__", "__add__", "__radd__"),
    ("encode", "__fspath__"),
]


@every_operation
@pytest.mark.parametrize("methods", METHODS, ids=" ".join)
@pytest.mark.parametrize("path", [PATH, "sub/new", "sub", "file.bin/leaf"])
def test_hostile_text_gives_the_result_or_its_own_failure(
    root: PinnedRoot, tree: Path, operation: Operation, methods: tuple[str, ...], path: str
) -> None:
    hostile = type("Hostile", (str,), dict.fromkeys(methods, raise_own))(path)
    sound = path in (PATH, "sub/new")
    with descriptors_kept():
        found = outcome_of(lambda: operation(root, hostile))
    if isinstance(found, Failure):
        assert found.kind is Own or (found.kind is ValueError and not sound)
    else:
        assert sound
    assert staged_below(tree) == []


class HostileBytes(bytes):
    """Bytes that answer no question; their buffer alone is sound."""

    __len__ = __bool__ = __iter__ = __getitem__ = __contains__ = raise_own
    __eq__ = __ne__ = __lt__ = __hash__ = raise_own
    __str__ = __repr__ = __format__ = __bytes__ = raise_own


class LyingBytes(bytes):
    """Bytes that claim to be other and fewer bytes."""

    def __len__(self) -> int:
        return 2

    def __bool__(self) -> bool:
        return False

    def __getitem__(self, index: object) -> Any:
        return b"lie"

    def __bytes__(self) -> bytes:
        return b"lie"


@pytest.mark.parametrize("kind", [HostileBytes, LyingBytes])
@pytest.mark.parametrize("content", [b"", b"the true bytes", bytes(100_000)], ids=len)
def test_the_buffer_of_the_payload_is_what_is_written(
    root: PinnedRoot, tree: Path, kind: type[bytes], content: bytes
) -> None:
    with descriptors_kept():
        root.write_atomic(PATH, kind(content), allow_replace=True)
    assert (tree / PATH).read_bytes() == content


@pytest.mark.parametrize("name", ["__class__", "__buffer__", "__bytes__", "__len__"])
def test_a_payload_that_pretends_to_be_bytes_writes_nothing(
    root: PinnedRoot, tree: Path, name: str
) -> None:
    content = property(lambda self: bytes) if name == "__class__" else lambda self: b"x"
    pretender: Any = type("Pretender", (), {name: content})()
    with strays_closed(), fails_with(TypeError, None):
        root.write_atomic("new", pretender, allow_replace=True)
    assert names_in(tree) == ["file.bin", "sub"]


class Undecided:
    """A flag that has no truth."""

    __bool__ = raise_own


def test_a_flag_without_a_truth_is_asked_where_a_leaf_exists(root: Any, tree: Path) -> None:
    with descriptors_kept(), fails_with(Own, "mine"):
        root.write_atomic(PATH, b"payload", allow_replace=Undecided())
    with descriptors_kept():
        found = outcome_of(lambda: root.write_atomic("new", b"x", allow_replace=Undecided()))
    assert not isinstance(found, Failure) or found.kind is Own
    assert staged_below(tree) == []
    assert (tree / PATH).read_bytes() == b"inner bytes"


def test_the_flag_of_an_update_may_have_no_truth(root: Any) -> None:
    with descriptors_kept(), fails_with(Own, "mine"):
        root.open_regular_file_for_update(PATH, create=Undecided())


@every_operation
@pytest.mark.parametrize(
    "descriptor", ["text", b"3", 1.5, (), 10**30, -1, 2**31 - 1, Index(Own)], ids=named
)
def test_a_pin_that_is_no_descriptor_fails_as_the_host_does(
    tree: Path, operation: Operation, descriptor: object
) -> None:
    root: Any = PinnedRoot(tree)
    real, root._descriptor = root._descriptor, descriptor
    with descriptors_kept():
        found = outcome_of(lambda: operation(root, PATH))
    root._descriptor = real
    root.close()
    assert isinstance(found, Failure)
    assert found.kind in {TypeError, OverflowError, OSError, Own}
    assert names_in(tree / "sub") == ["deep", "inner.bin"]


@every_operation
@pytest.mark.parametrize("given", [None, 5, (), (1,), (1, 2, 3), "x", [], {}, raise_own], ids=named)
def test_a_walk_that_gives_no_pair_ends_the_operation(
    root: Any, tree: Path, operation: Operation, given: object
) -> None:
    root._open_parent = lambda *args, **keywords: given
    with descriptors_kept():
        found = outcome_of(lambda: operation(root, PATH))
    assert isinstance(found, Failure) and found.kind in {TypeError, ValueError}
    assert names_in(tree / "sub") == ["deep", "inner.bin"]


@pytest.mark.keeps_descriptors
@every_operation
@pytest.mark.parametrize("descriptor", ["text", 1.5, 10**30, Index(Own)], ids=named)
def test_a_walk_that_gives_no_descriptor_ends_the_operation(
    root: Any, tree: Path, operation: Operation, descriptor: object
) -> None:
    root._open_parent = lambda *args, **keywords: (descriptor, "new")
    with strays_closed():
        found = outcome_of(lambda: operation(root, "new"))
    assert isinstance(found, Failure)
    assert names_in(tree) == ["file.bin", "sub"]


@pytest.mark.keeps_descriptors
@every_operation
@pytest.mark.parametrize("name", [None, 1.5, [], b"\xff", "a\0b", "\ud800", ""], ids=named)
def test_a_walk_that_gives_an_odd_name_harms_nothing(
    root: Any, tree: Path, operation: Operation, name: object
) -> None:
    root._open_parent = lambda *args, **keywords: (os.dup(root._descriptor), name)
    with strays_closed():
        outcome_of(lambda: operation(root, "new"))
    assert (tree / "file.bin").read_bytes() == b"outer bytes"
    assert staged_below(tree) == []


@pytest.mark.parametrize("given", [True, False, 5, "text", raise_own, Undecided()], ids=named)
def test_what_a_look_gives_back_is_not_asked(root: Any, tree: Path, given: object) -> None:
    root._assert_replaceable_leaf = lambda *args, **keywords: given
    with descriptors_kept():
        assert root.write_atomic("new", b"payload", allow_replace=False) is None
    assert (tree / "new").read_bytes() == b"payload"


def test_a_look_may_write_by_itself(root: Any, tree: Path) -> None:
    """The inner write is whole before the outer one goes on, and the outer one replaces it."""
    look = root._assert_replaceable_leaf
    inner = PinnedRoot(tree)
    seen: list[bytes] = []

    def judge(*args: Any, **keywords: Any) -> None:
        inner.write_atomic("new", b"inner %d" % len(seen), allow_replace=True)
        seen.append(inner.read_regular_file("new", label="file"))
        look(*args, **keywords)

    root._assert_replaceable_leaf = judge
    with descriptors_kept():
        root.write_atomic("new", b"outer", allow_replace=True)
        assert (tree / "new").read_bytes() == b"outer"
        with fails_with(FileExistsError, EXISTS.format("new")):
            root.write_atomic("new", b"outer again", allow_replace=False)
    inner.close()
    assert seen == [b"inner 0", b"inner 1", b"inner 2"]
    assert (tree / "new").read_bytes() == b"inner 2"
    assert staged_below(tree) == []


def test_a_root_that_is_closed_within_a_look_finishes_the_write(root: Any, tree: Path) -> None:
    root._assert_replaceable_leaf = lambda *args, **keywords: root.close()
    root.write_atomic("sub/new", b"payload", allow_replace=False)
    assert root._descriptor is None
    assert (tree / "sub" / "new").read_bytes() == b"payload"


def test_a_look_that_closes_the_parent_ends_the_write(root: Any, tree: Path) -> None:
    """Neither the staging nor the clean-up has a directory to work in."""
    root._assert_replaceable_leaf = lambda parent, *args, **keywords: os.close(parent)
    with descriptors_kept(), fails_with(OSError, None) as caught:
        root.write_atomic("sub/new", b"payload", allow_replace=False)
    for error in (caught.error, caught.error.__context__):
        assert isinstance(error, OSError) and error.errno == errno.EBADF
    assert names_in(tree / "sub") == ["deep", "inner.bin"]


@every_operation
def test_an_instance_that_was_never_pinned_has_nothing_to_walk(operation: Operation) -> None:
    with descriptors_kept(), fails_with(AttributeError, None):
        operation(PinnedRoot.__new__(PinnedRoot), PATH)
