"""The model of a crash gives the known verdicts on a few records made by hand."""

from __future__ import annotations

import os
from pathlib import Path
from typing import Any

import pytest

from faults.crash_model import DIRECTORY, Directory, Disk, File, Tree, node_of, top_above
from faults.crash_promises import ABSENT, Promise, broken_promises, syncs, without
from faults.injection import Call

OLD = b"old"
NEW = b"new!"
# The descriptors that are open ahead of each record.
ROOT = 3
OTHER = 4
FILE = 5

REPLACED = Promise("leaf", OLD, NEW)


def _call(kind: str, fd: int = ROOT, name: str = "", **values: Any) -> Call:
    empty = {"flags": 0, "mode": 0, "size": 0, "result": 0, "error": 0, "other_fd": -1}
    fields = {"kind": kind, "fd": fd, "name": name, "other_name": "", **empty, **values}
    return Call(**{name: fields.get(name, 0) for name in Call._fields})


def _create(name: str, at: int = ROOT, result: int = FILE) -> Call:
    return _call("openat", at, name, flags=os.O_WRONLY | os.O_CREAT, result=result)


def _write(count: int) -> Call:
    return _call("write", FILE, result=count)


def _sync(descriptor: int) -> Call:
    return _call("fsync", descriptor)


def _rename(source: str, target: str, at: int = ROOT, to: int = ROOT) -> Call:
    return _call("renameat", at, source, other_fd=to, other_name=target)


def _start() -> tuple[Disk, Directory]:
    root = Directory({"leaf": File(OLD, OLD)})
    other = Directory()
    base = Directory({**root.entries, "other": other})
    opened = {ROOT: base, OTHER: other}
    return Disk(top_above(Path("/home"), base), NEW, opened), base


def _broken(calls: list[Call], promise: Promise = REPLACED) -> list[str]:
    return broken_promises(calls, _start, promise)


def _trees(calls: list[Call]) -> list[Tree]:
    """What a crash can leave after the last of these calls, without the directory "other"."""
    disk, base = _start()
    for call in calls:
        disk.apply(call)
    found: list[Tree] = []
    for tree in disk.trees_after_crash(base):
        del tree["other"]
        if tree not in found:
            found.append(tree)
    return found


PUBLICATION = [_create("new"), _write(4), _sync(FILE), _rename("new", "leaf"), _sync(ROOT)]


def test_a_staged_synced_and_renamed_file_keeps_every_promise() -> None:
    assert _broken(PUBLICATION) == []


def test_each_sync_of_a_publication_is_needed() -> None:
    assert syncs(PUBLICATION, _start) == [[2], [4]]
    unsynced_file, unsynced_name = (_broken(without(PUBLICATION, [n])) for n in (2, 4))
    assert "leaf is neither old nor new: b'ne' after call 3, renameat new" in unsynced_file
    assert unsynced_name == ["leaf is not new after success"]


@pytest.mark.parametrize(
    "calls",
    [
        [_create("new"), _sync(FILE), _write(4), _rename("new", "leaf"), _sync(ROOT)],
        [_create("new"), _write(2), _sync(FILE), _write(2), _rename("new", "leaf"), _sync(ROOT)],
        [_call("openat", ROOT, "leaf", result=FILE), _write(4), _sync(FILE)],
        [*PUBLICATION[:3], _call("unlinkat", name="leaf"), *PUBLICATION[3:]],
    ],
    ids=["sync before write", "sync amid writes", "write in place", "unlink before rename"],
)
def test_a_leaf_that_can_be_torn_or_missing_is_found(calls: list[Call]) -> None:
    assert any("neither old nor new" in text for text in _broken(calls))


def test_unsynced_data_may_be_there_from_the_start_to_any_point() -> None:
    trees = _trees([_create("new"), _write(2), _sync(FILE), _write(2)])
    old = {"leaf": OLD}
    whole = [{**old, "new": content} for content in (b"ne", b"", b"n", b"new", b"new!")]
    assert sorted(map(repr, trees)) == sorted(map(repr, [old, *whole]))


def test_a_cut_is_a_change_of_data() -> None:
    calls = [_call("openat", name="leaf", result=FILE), _call("ftruncate", FILE, size=1)]
    assert {tree["leaf"] for tree in _trees(calls)} == {OLD, b"o", b""}
    assert _trees([*calls, _sync(FILE)]) == [{"leaf": b"o"}]


def test_changes_of_one_directory_are_lost_independently() -> None:
    trees = _trees([_call("mkdirat", name="one"), _call("mkdirat", name="two")])
    names = sorted(sorted(tree) for tree in trees)
    assert names == [["leaf"], ["leaf", "one"], ["leaf", "one", "two"], ["leaf", "two"]]


def test_a_rename_is_never_seen_by_halves() -> None:
    trees = _trees([_rename("leaf", "moved")])
    assert trees == [{"moved": OLD}, {"leaf": OLD}]


@pytest.mark.parametrize(
    ("synced", "lasts"), [([], False), ([ROOT], False), ([OTHER], False), ([OTHER, ROOT], True)]
)
def test_a_rename_between_directories_lasts_once_both_are_synced(
    synced: list[int], lasts: bool
) -> None:
    moved = Promise("other/leaf", ABSENT, OLD, gone=("leaf",))
    calls = [_rename("leaf", "leaf", to=OTHER), *map(_sync, synced)]
    assert (_broken(calls, moved) == []) is lasts


def test_a_moved_file_that_can_vanish_is_found() -> None:
    moved = Promise("other/leaf", ABSENT, OLD, gone=("leaf",))
    link = _call("linkat", ROOT, "leaf", other_fd=OTHER, other_name="leaf")
    calls = [link, _call("unlinkat", name="leaf"), _sync(ROOT), _sync(OTHER)]
    assert any(text.startswith("the moved file is lost") for text in _broken(calls, moved))


def test_a_rename_of_a_file_onto_itself_changes_nothing() -> None:
    link = _call("linkat", ROOT, "leaf", other_fd=ROOT, other_name="again")
    calls = [link, _sync(ROOT), _rename("again", "leaf"), _sync(ROOT)]
    assert _trees(calls) == [{"leaf": OLD, "again": OLD}]


def test_a_temporary_name_that_outlasts_success_is_found() -> None:
    calls = [_create("x.tmp"), *PUBLICATION]
    assert _broken(calls) == ["x.tmp is left after success"]


def test_what_has_to_stay_and_does_not_is_found() -> None:
    broken = _broken([_call("unlinkat", name="leaf")], Promise("x", ABSENT, NEW, {"leaf": OLD}))
    assert "leaf did not stay after call 1, unlinkat leaf" in broken


def test_a_directory_is_a_state_of_its_own() -> None:
    calls = [_call("mkdirat", name="made"), _sync(ROOT)]
    assert _broken(calls, Promise("made", ABSENT, DIRECTORY)) == []


def test_a_failed_call_changes_nothing() -> None:
    calls = [call._replace(error=5, result=-1) for call in PUBLICATION]
    assert _trees(calls) == [{"leaf": OLD}]


def test_a_number_is_followed_through_duplicates_closes_and_reuse() -> None:
    walked = [
        _call("open", -100, "/", result=7),
        _call("openat", 7, "home", result=8),
        _call("close", 7),
        _call("dup", 8, result=7),
        _call("close", 8),
        _create("new", at=7, result=8),
        _call("close", 8),
        _call("openat", 7, "other", result=8),
        _rename("leaf", "moved", at=7, to=8),
    ]
    moved = Promise("other/moved", ABSENT, OLD, gone=("leaf",))
    assert _broken([*walked, _sync(7), _sync(8)], moved) == []
    assert _broken([*walked, _sync(7), _sync(ROOT)], moved) != []


def test_syncs_of_one_directory_in_a_row_stand_together() -> None:
    calls = [*PUBLICATION, _call("dup", ROOT, result=7), _sync(7), _sync(OTHER), _sync(ROOT)]
    assert syncs(calls, _start) == [[2], [4, 6], [7], [8]]


def test_a_real_tree_is_taken_over_with_its_hard_links(tmp_path: Path) -> None:
    (tmp_path / "sub").mkdir()
    (tmp_path / "sub" / "one").write_bytes(OLD)
    os.link(tmp_path / "sub" / "one", tmp_path / "two")
    node = node_of(tmp_path)
    assert isinstance(node, Directory)
    tree: Tree = {"sub": DIRECTORY, "sub/one": OLD, "two": OLD}
    assert list(Disk(node).trees_after_crash(node)) == [tree]
    sub = node.entries["sub"]
    assert isinstance(sub, Directory)
    assert sub.entries["one"] is node.entries["two"]
