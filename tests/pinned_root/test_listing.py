"""Every listing starts at the beginning, bears changes made on its way, and is its own."""

from __future__ import annotations

import os
import threading
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.cleanups import CLEANUPS, by_prefix, by_suffix
from pinned_root.trees import DIRECTORY, FIFO, Tree, contents, plant
from support.descriptors import descriptors_kept

# Together the names are longer than the 32 KiB that the system library asks for at one time.
STABLE = tuple(f"directory-{number:0>220}" for number in range(150))
FILES = tuple(sorted(f"yard/{number}.tmp" for number in range(60)))


@pytest.fixture
def wide(tmp_path: Path) -> Path:
    """A directory with more entries than the system hands out at one time."""
    place = tmp_path / "wide"
    fill: Tree = {**dict.fromkeys(STABLE, DIRECTORY), **dict.fromkeys(FILES, b"")}
    plant(place, fill)
    return place


def test_one_root_is_listed_again_from_the_beginning(wide: Path) -> None:
    with PinnedRoot(wide) as root, descriptors_kept():
        for _ in range(3):
            assert root.list_directory_names() == (*STABLE, "yard")


def test_each_operation_starts_anew_after_each_other(wide: Path) -> None:
    with PinnedRoot(wide) as root, descriptors_kept():
        assert by_suffix(root, "9.tmp") == tuple(path for path in FILES if path.endswith("9.tmp"))
        assert by_prefix(root, ("absent",)) == ()
        assert root.list_directory_names() == (*STABLE, "yard")
        rest = tuple(path for path in FILES if not path.endswith("9.tmp"))
        assert by_prefix(root, ("yard",)) == rest
        assert by_suffix(root, ".tmp") == ()


def test_a_listing_that_stopped_midway_leaves_no_trace(tmp_path: Path) -> None:
    """The stop comes from an entry of the root itself, somewhere among the directories."""
    plant(tmp_path / "wide", {**dict.fromkeys(STABLE, DIRECTORY), "odd.tmp": FIFO})
    with PinnedRoot(tmp_path / "wide") as root, descriptors_kept():
        for _ in range(2):
            with pytest.raises(ValueError):
                by_suffix(root, ".tmp")
            assert root.list_directory_names() == STABLE


def test_a_listing_through_a_duplicate_of_the_pin_makes_no_difference(wide: Path) -> None:
    """A duplicate shares its place in the directory with the pin."""
    root: Any
    with PinnedRoot(wide) as root:
        duplicate = os.dup(root._descriptor)
        root._require_descriptor = lambda: duplicate
        assert root.list_directory_names() == (*STABLE, "yard")
        del root._require_descriptor
        assert root.list_directory_names() == (*STABLE, "yard")
        os.close(duplicate)


def test_a_contained_root_of_the_same_directory_is_listed_on_its_own(tmp_path: Path) -> None:
    plant(tmp_path, {f"top/{name}": DIRECTORY for name in STABLE})
    with PinnedRoot(tmp_path) as root:
        with root.open_contained_root("top", label="child") as child:
            for one in (child, child, root, child):
                assert one.list_directory_names() == (("top",) if one is root else STABLE)


@contextmanager
def meanwhile(work: Callable[[int], None]) -> Iterator[None]:
    """Calls `work` with 0, 1, 2 ... in a second thread for as long as the block runs."""
    stop, failures = threading.Event(), list[BaseException]()

    def run() -> None:
        number = 0
        try:
            while not stop.is_set():
                work(number)
                number += 1
        except BaseException as error:
            failures.append(error)

    thread = threading.Thread(target=run)
    thread.start()
    try:
        yield
    finally:
        stop.set()
        thread.join()
    assert failures == []


def test_directories_that_come_and_go_while_listing_are_no_failure(wide: Path) -> None:
    def churn(number: int) -> None:
        name = wide / f"passing-{number % 7}"
        name.mkdir()
        name.rmdir()

    with PinnedRoot(wide) as root, meanwhile(churn):
        for _ in range(10):
            names = root.list_directory_names()
            assert list(names) == sorted(set(names))
            assert {*STABLE, "yard"} <= set(names)
            assert all(name in STABLE or name[:8] in ("yard", "passing-") for name in names)


@pytest.mark.parametrize("walk", CLEANUPS)
def test_files_that_come_while_cleaning_are_no_failure(wide: Path, walk: str) -> None:
    """What was there is told exactly once; what comes on the way may be told or not."""

    def arrive(number: int) -> None:
        (wide / "yard" / f"late-{number}.tmp").touch()

    told: list[str] = []
    with PinnedRoot(wide) as root:
        with meanwhile(arrive):
            for _ in range(5):
                told += CLEANUPS[walk](root, ())
        told += CLEANUPS[walk](root, ())
    assert len(told) == len(set(told))
    assert set(FILES) <= set(told)
    assert all(path in FILES or path.startswith("yard/late-") for path in told)
    assert [path for path in contents(wide) if path.endswith(".tmp")] == []
