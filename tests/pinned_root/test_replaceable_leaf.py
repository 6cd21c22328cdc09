"""A leaf may be replaced when it is absent, or a regular file that the caller gives up."""

from __future__ import annotations

import errno
import os
from collections.abc import Iterator
from contextlib import suppress
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.disk import make_socket
from support.failures import fails_with

judge = PinnedRoot._assert_replaceable_leaf
SPECIAL = "contained file destination is a symlink or non-regular file: some/{}/path"


@pytest.fixture
def parent(tree: Path) -> Iterator[int]:
    descriptor = os.open(tree, os.O_RDONLY | os.O_DIRECTORY)
    yield descriptor
    os.close(descriptor)


@pytest.mark.parametrize("allow", [False, True])
def test_an_absent_leaf_is_always_acceptable(parent: int, allow: bool) -> None:
    assert judge(parent, "absent", safe_path="p", allow_replace=allow) is None


def test_a_regular_file_is_replaced_only_if_allowed(parent: int) -> None:
    assert judge(parent, "file.bin", safe_path="p", allow_replace=True) is None
    text = "contained file already exists: the/whole/{path}"
    with fails_with(FileExistsError, text) as caught:
        judge(parent, "file.bin", safe_path="the/whole/{path}", allow_replace=False)
    assert caught.error.__context__ is None
    assert isinstance(caught.error, OSError)
    assert (caught.error.errno, caught.error.filename) == (None, None)


@pytest.mark.parametrize("allow", [False, True])
@pytest.mark.parametrize("leaf", ["sub", "link", "dangling", "fifo", "socket"])
def test_anything_else_is_never_replaced(
    parent: int, tree: Path, leaf: str, allow: bool
) -> None:
    (tree / "link").symlink_to("file.bin")
    (tree / "dangling").symlink_to("nowhere")
    os.mkfifo(tree / "fifo")
    make_socket(tree / "socket")
    with fails_with(ValueError, SPECIAL) as caught:
        judge(parent, leaf, safe_path="some/{}/path", allow_replace=allow)
    assert caught.error.__context__ is None


def test_other_failures_pass_as_the_host_raised_them(parent: int, tree: Path) -> None:
    with fails_with(OSError, None) as caught:
        judge(parent, "n" * 256, safe_path="p", allow_replace=True)
    assert isinstance(caught.error, OSError) and caught.error.errno == errno.ENAMETOOLONG
    with (tree / "file.bin").open("rb") as file, fails_with(NotADirectoryError, None):
        judge(file.fileno(), "x", safe_path="p", allow_replace=True)
    with fails_with(OSError, "[Errno 9] Bad file descriptor: 'x'"):
        judge(2**31 - 1, "x", safe_path="p", allow_replace=True)


def test_values_are_taken_by_place_and_by_name(parent: int) -> None:
    judge(parent_descriptor=parent, name="absent", safe_path="p", allow_replace=True)
    for keywords in ({}, {"safe_path": "p"}, {"allow_replace": True}):
        with pytest.raises(TypeError):
            judge(parent, "absent", **keywords)
    with pytest.raises(TypeError):
        judge(parent, "absent", "p", True)  # type: ignore[call-arg]


def test_it_is_reached_through_an_instance_as_well(root: Any) -> None:
    root._assert_replaceable_leaf(
        root._descriptor, "file.bin", safe_path="file.bin", allow_replace=True
    )


class Flag:
    """A flag that says how often it was asked for its truth."""

    def __init__(self, value: bool) -> None:
        self.value = value
        self.asked = 0

    def __bool__(self) -> bool:
        self.asked += 1
        return self.value


@pytest.mark.parametrize(("leaf", "asked"), [("absent", 0), ("sub", 0), ("file.bin", 1)])
def test_permission_is_asked_for_only_over_a_regular_file(
    parent: int, leaf: str, asked: int
) -> None:
    flag: Any = Flag(False)
    with suppress(ValueError, FileExistsError):
        judge(parent, leaf, safe_path="p", allow_replace=flag)
    assert flag.asked == asked


def test_a_walk_of_one_segment_does_not_ask_whether_to_make_directories(tree: Path) -> None:
    flag: Any = Flag(True)
    with PinnedRoot(tree) as root:
        os.close(root._open_parent("leaf", label="l", create=flag)[0])
    PinnedRoot("/", create=flag).close()
    assert flag.asked == 0
