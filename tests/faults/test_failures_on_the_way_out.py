"""A second failure while one is being cleaned up, and a load under any single failure."""

from __future__ import annotations

import errno
from pathlib import Path

import pytest
from brindlefen.distribution import client_manifest

from faults.injection import Shim, armed
from faults.layout import LABEL, LEAF, make_distribution, make_tree, pinned
from faults.operations import OPERATIONS, Prepared
from faults.runs import clean_run, close_what_was_left, host_failure, require_left_open
from faults.trace import require_single_closes
from support.descriptors import open_descriptors
from support.failures import fails_with

# A reader that is dropped, since its parent would not close, is closed by its destructor.
pytestmark = pytest.mark.filterwarnings(
    "ignore::ResourceWarning", "ignore::pytest.PytestUnraisableExceptionWarning"
)

DOCUMENTED = (OSError, ValueError)
# The others make no close behind any of their calls.
CLEANING_UP = [name for name in OPERATIONS if name not in ("close", "assert_replaceable_leaf")]


@pytest.mark.parametrize("name", CLEANING_UP)
def test_a_close_that_fails_while_cleaning_up_loses_no_descriptor(
    name: str, tmp_path: Path
) -> None:
    with OPERATIONS[name](tmp_path / "clean") as operation:
        lines = clean_run(operation)
    pairs = 0
    for row, (clean_line, numbers) in enumerate(lines):
        number = numbers[0]
        with OPERATIONS[name](tmp_path / f"{number}-once") as operation:
            closes_before, closes_after = _closes_around(operation, clean_line, number)
        for close in range(closes_before + 1, closes_before + closes_after + 1):
            with OPERATIONS[name](tmp_path / f"{number}-{close}") as operation:
                line, rule = operation.table[row]
                print(f"{line} fails, then close {close}")
                left_open = rule(host_failure(line, errno.EIO)).left_open
                before = open_descriptors()
                with armed() as shim, pytest.raises(DOCUMENTED):
                    _fail(shim, clean_line, number)
                    shim.fail_after("close", close, errno.EIO)
                    operation.release(operation.act())
                require_single_closes(shim.calls)
                require_left_open(before, shim.calls, left_open)
                pairs += 1
    assert pairs > 0


def _fail(shim: Shim, line: str, number: int) -> None:
    fail = shim.fail_after if line.startswith("close ") else shim.fail
    fail("any", number, errno.EIO)


def _closes_around(operation: Prepared, line: str, number: int) -> tuple[int, int]:
    """How many closes come up to the failing call, and how many clean up behind it."""
    before = open_descriptors()
    with armed() as shim, pytest.raises(DOCUMENTED):
        _fail(shim, line, number)
        operation.release(operation.act())
    close_what_was_left(before)
    kinds = [call.kind for call in shim.calls]
    return kinds[:number].count("close"), kinds[number:].count("close")


def test_a_load_under_any_single_failure_fails_and_leaves_nothing(tmp_path: Path) -> None:
    root = make_distribution(tmp_path / "distribution")
    with armed() as shim:
        client_manifest.load_accepted_distribution_set(root)
    for number, call in enumerate(shim.calls, start=1):
        print(f"call {number}: {call}")
        before = open_descriptors()
        with armed() as faulty, pytest.raises(DOCUMENTED):
            fail = faulty.fail_after if call.kind == "close" else faulty.fail
            fail("any", number, errno.EIO)
            client_manifest.load_accepted_distribution_set(root)
        require_single_closes(faulty.calls)
        # Walks from the top and to a parent leave a directory open that they cannot look at.
        left = close_what_was_left(before)
        assert len(left) <= (call.kind == "fstat"), f"left open by {faulty.calls}"


def test_a_seek_that_fails_passes_as_the_hosts_failure(tmp_path: Path) -> None:
    with pinned(make_tree(tmp_path / "root")) as reader:
        with reader.open_regular_file_for_read(LEAF, label=LABEL) as file:
            with armed() as shim, fails_with(OSError, "[Errno 5] Input/output error"):
                shim.fail("lseek", 1, errno.EIO)
                reader.hash_open_regular_file(file, LEAF, label=LABEL)
            assert not file.closed


def test_a_sync_that_says_the_entry_exists_is_taken_like_the_mkdir(tmp_path: Path) -> None:
    root = make_tree(tmp_path / "root")
    with armed() as shim:
        shim.fail("fsync", 1, errno.EEXIST)
        reader = client_manifest.PinnedRoot(root / "new", create=True)
    reader.close()


@pytest.mark.parametrize("kind", ["openat", "fsync"])
def test_a_directory_that_was_made_stays_made(tmp_path: Path, kind: str) -> None:
    with pinned(make_tree(tmp_path / "root")) as reader:
        with armed() as shim, pytest.raises(DOCUMENTED):
            shim.fail(kind, 1, errno.EIO)
            reader._open_parent("new/below/leaf", label=LABEL, create=True)
    assert (tmp_path / "root" / "new").is_dir()
    assert not (tmp_path / "root" / "new" / "below").exists()


def test_a_mkdir_that_wrongly_finds_an_entry_leaves_the_verdict_to_the_open(
    tmp_path: Path,
) -> None:
    with pinned(make_tree(tmp_path / "root")) as reader:
        with (
            armed() as shim,
            fails_with(
                FileNotFoundError,
                f"{LABEL} has a missing parent: new/leaf",
                cause=FileNotFoundError,
            ),
        ):
            shim.fail("mkdirat", 1, errno.EEXIST)
            reader._open_parent("new/leaf", label=LABEL, create=True)
    assert "fsync" not in [call.kind for call in shim.calls]


def test_the_anchor_is_closed_although_the_directory_would_not_close(tmp_path: Path) -> None:
    with pinned(make_tree(tmp_path / "root")) as reader:
        child = reader.open_contained_root("sub", label=LABEL)
        with armed() as shim, fails_with(OSError, "[Errno 5] Input/output error"):
            shim.fail_after("close", 1, errno.EIO)
            child.close()
        assert [call.kind for call in shim.calls] == ["close", "close"]
        assert (child._descriptor, child._anchor_descriptor) == (None, None)
        child.close()
