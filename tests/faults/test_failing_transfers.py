"""What a transfer between two roots reports when several things fail, and what it leaves then."""

from __future__ import annotations

import errno
import itertools
import os
from collections.abc import Callable
from pathlib import Path

import pytest
from brindlefen.distribution import client_manifest

from faults.injection import Call, armed
from faults.layout import LEAF, make_tree
from faults.mutation import NEW, OLD
from faults.transfer_lines import DESTINATION
from support.failures import fails_with

LINK = "link_or_copy_contained_regular_file"
COPY = "copy_contained_regular_file"
MOVE = "move_contained_regular_file"


@pytest.fixture()
def roots(tmp_path: Path) -> tuple[Path, Path]:
    source, destination = tmp_path / "source", tmp_path / "destination"
    (make_tree(source) / LEAF).write_bytes(NEW)
    (destination / DESTINATION).parent.mkdir(parents=True)
    (destination / DESTINATION).write_bytes(OLD)
    return source, destination


def _transfer(name: str, roots: tuple[Path, Path]) -> object:
    result: object = getattr(client_manifest, name)(roots[0], LEAF, roots[1], DESTINATION)
    return result


def _beside(roots: tuple[Path, Path]) -> list[str]:
    return sorted(os.listdir((roots[1] / DESTINATION).parent))


def _errnos_before(error: BaseException) -> list[int | None]:
    errnos = []
    while error.__context__ is not None:
        error = error.__context__
        if isinstance(error, OSError):
            errnos.append(error.errno)
    return errnos


def test_a_move_to_another_file_system_fails_with_both_names_and_no_copy(
    roots: tuple[Path, Path],
) -> None:
    text = "[Errno 18] Invalid cross-device link: 'leaf' -> 'leaf'"
    with armed() as shim, fails_with(OSError, text):
        shim.fail("renameat", 1, errno.EXDEV)
        _transfer(MOVE, roots)
    assert (roots[0] / LEAF).read_bytes() == NEW
    assert (roots[1] / DESTINATION).read_bytes() == OLD


def test_a_copy_that_fails_in_place_of_a_link_has_the_links_failure_as_context(
    roots: tuple[Path, Path],
) -> None:
    text = f"contained copy source is a symlink or is not safely readable: {LEAF}"
    # The first open of a leaf is the copy's: a link opens none.
    nth = _first_leaf_of_the_copy(roots)
    with armed() as shim, fails_with(ValueError, text, cause=PermissionError) as caught:
        shim.fail("linkat", 1, errno.EXDEV)
        shim.fail("openat", nth, errno.EACCES)
        _transfer(LINK, roots)
    assert _errnos_before(caught.error) == [errno.EACCES, errno.EXDEV]
    assert _beside(roots) == ["leaf"]
    assert (roots[1] / DESTINATION).read_bytes() == OLD


def _first_leaf_of_the_copy(roots: tuple[Path, Path]) -> int:
    with armed() as shim:
        shim.fail("linkat", 1, errno.EXDEV)
        assert _transfer(LINK, roots) == "copied"
    (roots[1] / DESTINATION).write_bytes(OLD)
    opens = [call for call in shim.calls if call.kind == "openat"]
    return next(number for number, call in enumerate(opens, start=1) if call.name == "leaf")


def test_a_publication_that_fails_behind_a_link_is_not_followed_by_a_copy(
    roots: tuple[Path, Path],
) -> None:
    with armed() as shim, pytest.raises(OSError, match="Input/output error"):
        shim.fail("renameat", 1, errno.EIO)
        _transfer(LINK, roots)
    assert [call.kind for call in shim.calls].count("linkat") == 1
    assert "write" not in {call.kind for call in shim.calls}
    assert _beside(roots) == ["leaf"]
    assert os.stat(roots[0] / LEAF).st_nlink == 1


def _transfer_name_removals(calls: list[Call]) -> list[int]:
    unlinks = [call for call in calls if call.kind == "unlinkat"]
    return [n for n, call in enumerate(unlinks, start=1) if call.name.endswith(".tmp")]


@pytest.mark.parametrize(("name", "kind"), [(COPY, "write"), (COPY, "fsync"), (LINK, "renameat")])
def test_a_transfer_name_that_cannot_be_removed_is_reported_before_what_came_first(
    roots: tuple[Path, Path], name: str, kind: str
) -> None:
    with armed() as shim, pytest.raises(OSError, match="Input/output error"):
        shim.fail(kind, 1, errno.EIO)
        _transfer(name, roots)
    (removal,) = _transfer_name_removals(shim.calls)
    assert _beside(roots) == ["leaf"]
    with armed() as shim, pytest.raises(OSError, match="Read-only file system") as caught:
        shim.fail(kind, 1, errno.EIO)
        shim.fail("unlinkat", removal, errno.EROFS)
        _transfer(name, roots)
    assert errno.EIO in _errnos_before(caught.value)
    assert caught.value.__cause__ is None
    assert len(_beside(roots)) == 2
    assert (roots[1] / DESTINATION).read_bytes() == OLD


@pytest.mark.parametrize("name", [COPY, LINK, MOVE])
def test_a_root_that_fails_its_proof_keeps_what_was_published(
    roots: tuple[Path, Path], name: str
) -> None:
    text = "pinned root canonical path changed or became unsafe during operation"
    with armed() as shim, fails_with(ValueError, text, cause=FileNotFoundError):
        shim.after("renameat", 1, lambda: roots[0].rename(roots[0].with_name("moved")))
        _transfer(name, roots)
    assert (roots[1] / DESTINATION).read_bytes() == NEW
    assert _beside(roots) == ["leaf"]


def test_short_writes_of_a_stream_add_up_to_the_file(roots: tuple[Path, Path]) -> None:
    content = bytes(range(256)) * 64
    (roots[0] / LEAF).write_bytes(content)
    with armed() as shim:
        shim.shorten("write", 0, 1000)
        shim.shorten("read", 0, 700)
        _transfer(COPY, roots)
    assert (roots[1] / DESTINATION).read_bytes() == content


METADATA = b'{"version": 1, "market_id": 2, "era_number": 3}'
RECORD = {
    "client_manifest_version": 1,
    "client_manifest_market_id": 2,
    "client_manifest_era_number": 3,
}


def test_the_metadata_of_a_manifest_fail_as_its_read_does_but_for_absence(tmp_path: Path) -> None:
    path = tmp_path / "manifest.json"
    path.write_bytes(METADATA)
    with armed() as shim:
        assert client_manifest.manifest_metadata_from_path(path) == RECORD

    def reading() -> object:
        return client_manifest.read_regular_file_path(path, label=str(path))

    def describing() -> object:
        return client_manifest.manifest_metadata_from_path(path)

    told = 0
    for number, code in itertools.product(range(1, len(shim.calls) + 1), (errno.EIO, errno.ENOENT)):
        kind = shim.calls[number - 1].kind
        # A look that fails leaves a directory open; the tables of walks show that.
        if kind in ("fstat", "lseek"):
            continue
        read, metadata = (_fault(act, number, kind, code) for act in (reading, describing))
        absent = isinstance(read, FileNotFoundError)
        assert metadata == {} if absent else _words(metadata) == _words(read)
        told += 1
    assert told > 20


def _fault(act: Callable[[], object], number: int, kind: str, code: int) -> object:
    """What the act returns or raises while one call fails."""
    try:
        with armed() as shim:
            (shim.fail_after if kind == "close" else shim.fail)("any", number, code)
            return act()
    except (OSError, ValueError) as error:
        return error


def _words(outcome: object) -> tuple[type[object], str]:
    return type(outcome), str(outcome)
