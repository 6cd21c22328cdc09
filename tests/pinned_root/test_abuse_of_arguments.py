"""Arguments that lie or raise end in a result or in their own failure, and leak nothing."""

from __future__ import annotations

from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.hostile import Index, Own, raise_own
from pinned_root.outcomes import Failure, outcome_of
from support.descriptors import descriptors_kept
from support.failures import fails_with
from support.naming import named

PATH = "sub/inner.bin"

LABELS = [None, 5, 1.5, b"bytes", ["a"], ("x", 1), {"k": "v"}, ValueError("inner")]


@pytest.mark.parametrize("label", LABELS, ids=named)
def test_a_label_may_be_anything_that_can_be_formatted(root: PinnedRoot, label: Any) -> None:
    with fails_with(FileNotFoundError, f"{label} is missing: absent", cause=FileNotFoundError):
        root.read_regular_file("absent", label=label)
    with fails_with(ValueError, f"{label} must be a regular file: sub"):
        root.hash_regular_file("sub", label=label)
    assert root.read_regular_file(PATH, label=label) == b"inner bytes"


class Formatted:
    """A label with a format of its own; its text form and its truth must not be asked."""

    def __format__(self, spec: str) -> str:
        return f"formatted<{spec}>"

    __str__ = __repr__ = raise_own


def test_a_label_is_put_in_by_its_own_format(root: Any) -> None:
    text = "formatted<> must be a regular file: sub"
    with fails_with(ValueError, text):
        root.read_regular_file("sub", label=Formatted())
    text = "formatted<> has a missing parent: absent/leaf"
    with fails_with(FileNotFoundError, text, cause=FileNotFoundError):
        root.hash_regular_file("absent/leaf", label=Formatted())


class Unformatted:
    """A label that cannot be put into any message."""

    __format__ = __str__ = __repr__ = raise_own


@pytest.mark.parametrize("path", ["absent", "absent/leaf", "file.bin/leaf", "link", "sub"])
def test_a_label_that_fails_to_be_formatted_replaces_the_failure(
    root: Any, tree: Path, path: str
) -> None:
    (tree / "link").symlink_to("file.bin")
    with descriptors_kept(), fails_with(Own, "mine"):
        root.read_regular_file(path, label=Unformatted())
    with descriptors_kept(), fails_with(Own, "mine"):
        root.open_contained_root("absent", label=Unformatted())
    assert root.read_regular_file(PATH, label=Unformatted()) == b"inner bytes"


def test_the_truth_of_a_contained_label_may_fail(root: Any) -> None:
    class Undecided:
        __bool__ = raise_own

    with descriptors_kept(), fails_with(Own, "mine"):
        root.open_contained_root("sub", label=Undecided())


class Text(str):
    """Text that passes the type test; what it says of itself is another matter."""


def hostile_text(*methods: str) -> type[str]:
    return type("Hostile", (Text,), dict.fromkeys(methods, raise_own))


@pytest.mark.parametrize(
    "methods",
    [
        ("__eq__", "__ne__", "__hash__"),
        ("__contains__", "__len__", "__iter__", "__getitem__"),
        ("strip",),
        ("startswith", "endswith"),
        ("split",),
        ("__format__", "__str__", "__repr__"),
        ("__bool__",),
        ("encode", "__fspath__"),
    ],
    ids=" ".join,
)
def test_hostile_text_gives_the_result_or_its_own_failure(
    root: PinnedRoot, methods: tuple[str, ...]
) -> None:
    path = hostile_text(*methods)(PATH)
    for operation in (root.read_regular_file, root.hash_regular_file, root.stat_regular_file):
        with descriptors_kept():
            found = outcome_of(lambda: operation(path, label="file"))
        if isinstance(found, Failure):
            assert (found.kind, found.text) == (Own, "mine")
    missing = hostile_text(*methods)("absent/leaf")
    with descriptors_kept():
        found = outcome_of(lambda: root.read_regular_file(missing, label="file"))
    assert isinstance(found, Failure) and found.kind in {Own, FileNotFoundError}


def test_text_of_a_subclass_is_walked_as_text(root: PinnedRoot) -> None:
    assert root.read_regular_file(Text(PATH), label=Text("file")) == b"inner bytes"
    with root.open_contained_root(Text("sub"), label=Text("child")) as child:
        assert child._anchor_components == ("sub",)


@pytest.mark.parametrize("give", [raise_own, lambda self: 5, lambda self: b"/", lambda self: None])
def test_a_root_that_lies_about_its_path_fails_as_the_host_does(give: object) -> None:
    place = type("Place", (), {"__fspath__": give})()
    with descriptors_kept():
        found = outcome_of(lambda: PinnedRoot(place))
    assert isinstance(found, Failure) and found.kind in {Own, TypeError}


@pytest.mark.parametrize("root", [None, 5, 1.5, b"/tmp", ["/"], object()], ids=named)
def test_a_root_that_is_no_path_is_a_type_error(root: Any) -> None:
    with descriptors_kept(), fails_with(TypeError, None):
        PinnedRoot(root)


def test_a_creation_flag_without_a_truth_leaks_nothing(tree: Path) -> None:
    flag = type("Flag", (), {"__bool__": raise_own})()
    with descriptors_kept(), fails_with(Own, "mine"):
        PinnedRoot(tree, create=flag)


FILENOS = [
    ("text", TypeError),
    (None, TypeError),
    (1.5, TypeError),
    (10**30, OverflowError),
    (-1, OSError),
    (2**31 - 1, OSError),
    (Index(Own), Own),
]


@pytest.mark.parametrize(("number", "kind"), FILENOS, ids=named)
def test_a_file_number_that_is_none_fails_as_the_host_does(
    root: PinnedRoot, number: object, kind: type[Exception]
) -> None:
    file = type("File", (), {"fileno": lambda self: number})()
    identity = root.hash_regular_file(PATH, label="file")
    with descriptors_kept():
        for action in (
            lambda: root._read_open_regular_file_with_stat(file, PATH, label="file"),
            lambda: root.hash_open_regular_file(file, PATH, label="file"),
            lambda: root.assert_open_regular_file_identity(
                file, PATH, label="file", identity=identity
            ),
        ):
            with fails_with(kind, None):
                action()


@pytest.mark.parametrize("file", [None, 5, "text", object()], ids=named)
def test_a_file_without_a_number_is_missed(root: PinnedRoot, file: Any) -> None:
    for operation in (root._read_open_regular_file_with_stat, root.hash_open_regular_file):
        with fails_with(AttributeError, None):
            operation(file, PATH, label="file")


PARTS = [
    ("text of eleven"[:11], TypeError),
    (5, TypeError),
    (object(), TypeError),
    (type("P", (), {"__bool__": raise_own, "__len__": raise_own})(), Own),
    (type("P", (), {"__len__": raise_own})(), Own),
    (type("P", (), {"__len__": lambda self: -5})(), ValueError),
    (type("P", (), {"__len__": lambda self: 10**30})(), OverflowError),
    (type("P", (), {"__len__": lambda self: 11})(), TypeError),
]


@pytest.mark.parametrize(("part", "kind"), PARTS)
def test_a_part_that_is_no_bytes_fails_as_the_host_does(
    root: PinnedRoot, tree: Path, part: object, kind: type[Exception]
) -> None:
    with open(tree / PATH, "rb") as real:

        class File:
            parts = [part]
            fileno = staticmethod(real.fileno)
            seek = staticmethod(real.seek)

            def read(self, size: int) -> Any:
                return self.parts.pop() if self.parts else b""

        with descriptors_kept():
            with fails_with(kind, None):
                root._read_open_regular_file_with_stat(File(), PATH, label="file")
            File.parts = [part]
            with fails_with(kind, None):
                root.hash_open_regular_file(File(), PATH, label="file")


class HostileCount(int):
    """An integer that raises when it is compared or put to use."""

    __lt__ = __le__ = __gt__ = __ge__ = __eq__ = __ne__ = __hash__ = __bool__ = raise_own
    __index__ = __int__ = raise_own


def test_a_hostile_chunk_gives_the_result_or_its_own_failure(root: PinnedRoot) -> None:
    expected = root.hash_regular_file(PATH, label="file")
    with descriptors_kept():
        found = outcome_of(
            lambda: root.hash_regular_file(PATH, label="file", chunk_bytes=HostileCount(4))
        )
    if isinstance(found, Failure):
        assert (found.kind, found.text) == (Own, "mine")
    else:
        assert found.value == expected


def test_a_hostile_stat_key_of_an_identity_is_compared_by_itself(root: PinnedRoot) -> None:
    class Key:
        __eq__ = __ne__ = raise_own

    identity = type("Identity", (), {"stat_key": Key()})()
    with root.open_regular_file_for_read(PATH, label="file") as file:
        with descriptors_kept(), fails_with(Own, "mine"):
            root.assert_open_regular_file_identity(file, PATH, label="file", identity=identity)
