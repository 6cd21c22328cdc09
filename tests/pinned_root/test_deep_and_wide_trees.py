"""Walks end in a result or in a stated failure, however deep or wide a tree is."""

from __future__ import annotations

import errno
import os
import resource
import shutil
import stat
import tempfile
import threading
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.children import run_in_child
from pinned_root.cleanups import by_prefix, by_suffix
from pinned_root.outcomes import Failure, Value, outcome_of
from support.descriptors import descriptors_kept

DIRECTORY = os.O_RDONLY | os.O_DIRECTORY

DEPTH = 2_000
DEEPEST = "/".join(["d"] * DEPTH) + "/f.tmp"
HALFWAY = "/".join(["d"] * (DEPTH // 2)) + "/f.tmp"
# One descriptor for the directory and one for its listing a level, and some beside.
ENOUGH = 2 * DEPTH + 200
TOO_FEW = 300
SMALL_STACK = 256 * 1024

WALKS: dict[str, tuple[Callable[[Any], object], object]] = {
    "suffix": (lambda root: by_suffix(root, ".tmp"), tuple(sorted([DEEPEST, HALFWAY]))),
    "prefix": (lambda root: by_prefix(root, ("d",)), tuple(sorted([DEEPEST, HALFWAY]))),
    "tree": (lambda root: root.remove_directory_tree("d", missing_ok=False), True),
}


@pytest.fixture
def quick(tmp_path: Path) -> Iterator[Path]:
    """A directory in memory where there is one: thousands of flushes take seconds on a disk."""
    memory = Path("/dev/shm")
    if not os.access(memory, os.W_OK | os.X_OK):
        yield tmp_path
        return
    place = Path(tempfile.mkdtemp(dir=memory))
    yield place
    shutil.rmtree(place)


@pytest.fixture
def deep(quick: Path) -> Iterator[Path]:
    """A chain of directories, with a file in the middle and one at its end."""
    current = os.open(quick, DIRECTORY)
    for level in range(1, DEPTH + 1):
        os.mkdir("d", dir_fd=current)
        current = go(current, "d")
        if level in (DEPTH // 2, DEPTH):
            os.mknod("f.tmp", stat.S_IFREG | 0o600, dir_fd=current)
    os.close(current)
    yield quick
    dismantle(quick)


def go(current: int, name: str) -> int:
    """The descriptor of a directory beside or below the one that is given, which is closed."""
    found = os.open(name, DIRECTORY, dir_fd=current)
    os.close(current)
    return found


def dismantle(place: Path) -> None:
    """Takes the chain away from its end; common tools go down it by recursion, and fail."""
    current, depth = os.open(place, DIRECTORY), 0
    while "d" in os.listdir(current):
        current, depth = go(current, "d"), depth + 1
    for _ in range(depth):
        if "f.tmp" in os.listdir(current):
            os.unlink("f.tmp", dir_fd=current)
        current = go(current, "..")
        os.rmdir("d", dir_fd=current)
    os.close(current)


def allow_descriptors(count: int) -> None:
    """Sets how many descriptors this process may have, in a child."""
    _, most = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (count, max(count, most)))


def require_limit(count: int) -> None:
    _, most = resource.getrlimit(resource.RLIMIT_NOFILE)
    if os.geteuid() != 0 and most < count:
        pytest.skip(f"this user may not have {count} descriptors")


def in_small_thread(action: Callable[[], object]) -> object:
    found: list[object] = []
    before = threading.stack_size(SMALL_STACK)
    try:
        thread = threading.Thread(target=lambda: found.append(action()))
        thread.start()
        thread.join()
    finally:
        threading.stack_size(before)
    return found[0]


@pytest.mark.parametrize("walk", WALKS)
def test_a_deep_tree_is_walked_to_its_end_on_a_small_stack(deep: Path, walk: str) -> None:
    require_limit(ENOUGH)
    action, expected = WALKS[walk]

    def walked() -> None:
        allow_descriptors(ENOUGH)
        with PinnedRoot(deep) as root, descriptors_kept():
            assert in_small_thread(lambda: outcome_of(lambda: action(root))) == Value(expected)
            assert root.list_directory_names() == (() if walk == "tree" else ("d",))

    run_in_child(walked)


@pytest.mark.parametrize("walk", WALKS)
def test_too_few_descriptors_are_the_hosts_failure_or_an_unsafe_directory(
    deep: Path, walk: str
) -> None:
    """The removal translates a directory that cannot be opened, but not a listing that fails."""
    action, _ = WALKS[walk]

    def walked() -> None:
        allow_descriptors(TOO_FEW)
        with PinnedRoot(deep) as root, descriptors_kept():
            ended = outcome_of(lambda: action(root))
            assert isinstance(ended, Failure)
            if ended.kind is ValueError:
                assert walk == "tree" and ended.cause is not None
                words, _, path = ended.text.partition(": ")
                assert words == "contained directory removal encountered an unsafe directory"
                assert set(path.split("/")) == {"d"}
                ended = ended.cause
            assert (ended.kind, ended.errno) == (OSError, errno.EMFILE)
            assert root.list_directory_names() == ("d",)

    run_in_child(walked)
    assert (deep / HALFWAY).exists()


def test_a_deep_directory_is_made_with_few_descriptors(deep: Path) -> None:
    """This walk holds two directories at a time."""
    path = "/".join(["d"] * (DEPTH + 100))

    def made() -> None:
        allow_descriptors(TOO_FEW)
        with PinnedRoot(deep) as root, descriptors_kept():
            in_small_thread(lambda: root.ensure_directory(path))
            root.ensure_directory(path)
            with root.open_contained_root(path, label="deepest") as deepest:
                assert deepest.list_directory_names() == ()

    run_in_child(made)


@pytest.mark.parametrize("walk", ["suffix", "prefix"])
def test_a_wide_directory_is_cleaned_in_one_pass(tmp_path: Path, walk: str) -> None:
    """The directory changes under the listing with every file that goes, and none is left out."""
    names = [f"{number}.tmp" for number in range(800)]
    (tmp_path / "d").mkdir()
    wide = os.open(tmp_path / "d", DIRECTORY)
    for name in names:
        os.mknod(name, stat.S_IFREG | 0o600, dir_fd=wide)
    os.close(wide)
    with PinnedRoot(tmp_path) as root, descriptors_kept():
        assert WALKS[walk][0](root) == tuple(sorted(f"d/{name}" for name in names))
    assert list((tmp_path / "d").iterdir()) == []
