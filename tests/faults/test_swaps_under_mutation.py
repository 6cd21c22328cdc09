"""Whatever changes under a mutating operation, it ends well or by a documented failure.

Each change is made ahead of each call that looks up a name in the changed tree, and after the last
call: the calls between two of these see nothing of a tree but what they hold. No change leads an
operation out of its root, and no operation leaves a file that it staged.
"""

from __future__ import annotations

import os
import shutil
from collections.abc import Iterator
from pathlib import Path

import pytest

from faults.injection import Call, Shim, armed
from faults.mutating_swaps import (
    CANARY,
    CONTENT,
    ENEMY,
    ROOT_SWAPS,
    SWAPS,
    WALK_SWAPS,
    Snapshot,
    Target,
    make_file,
    snapshot,
)
from faults.runs import close_what_was_left
from faults.swap_answers import key_of
from faults.swap_draws import DRAWN
from faults.swap_operations import ATTACKED, NEW, REPLACED, Attacked, Scene
from faults.trace import require_single_closes
from support.descriptors import open_descriptors

NAME_CALLS = ("openat", "mkdirat", "fstatat", "unlinkat", "renameat", "linkat", "readdir")
TWIN = "the root is a twin"
# Every content that a file can have at the end: none is torn, none comes from outside.
WHOLE = (CONTENT, NEW, REPLACED, ENEMY)

CASES = [(name, *case) for name, attacked in ATTACKED.items() for case in attacked.cases()]


@pytest.mark.parametrize(("name", "root", "swap"), CASES)
def test_a_change_at_any_boundary_is_survived_or_refused_within_the_root(
    name: str, root: str, swap: str, tmp_path: Path
) -> None:
    attacked = ATTACKED[name]
    canary = tmp_path / "canary"
    make_file(canary / attacked.targets[root], CANARY)
    untouched = snapshot(canary)
    boundaries, last = _boundaries(attacked, root, swap, Scene(tmp_path / "clean"))
    told = set()
    for number in sorted({*boundaries, last + 1}):
        scene = Scene(tmp_path / f"{number}")
        told.add(_answer(attacked, root, swap, scene, canary, number, last))
        shutil.rmtree(scene.base)
    assert snapshot(canary) == untouched
    drawn = {"result", *DRAWN[name][root].get(swap, set())}
    assert drawn <= told <= {"result", *attacked.answers}, sorted(told)


def _boundaries(attacked: Attacked, root: str, swap: str, scene: Scene) -> tuple[list[int], int]:
    """The numbers of the calls that look up a name in the changed tree, and of the last call.

    For a change of the root that is its own name too, which no other change touches.
    """
    attacked.prepare(scene)
    with attacked.opening(scene) as (act, places), armed() as shim:
        _skip_syncs(shim)
        act()
    top = scene.base / root
    looks = _looks(shim.calls, dict(places))
    return [
        number
        for number, path in looks
        if path.is_relative_to(top) and (path != top or swap in ROOT_SWAPS)
    ], len(shim.calls)


def _skip_syncs(shim: Shim) -> None:
    """No sync reaches the disk: it changes nothing that a name can show, and takes its time.

    Not every operation makes one, but a rule has to be met: so one is made here.
    """
    shim.skip("fsync", 0)
    os.fsync(0)


def _looks(calls: list[Call], places: dict[int, Path]) -> Iterator[tuple[int, Path]]:
    """The path that each call by name looks up, with the number of the call.

    A look into a directory counts as a look at some name in it.
    """
    for number, call in enumerate(calls, start=1):
        place = places.get(call.fd, Path())
        if call.kind in NAME_CALLS:
            yield number, place / (call.name or "*")
        if call.kind in ("renameat", "linkat"):
            yield number, places[call.other_fd] / call.other_name
        if call.kind in ("open", "openat"):
            places[call.result] = place / call.name
        elif call.kind == "dup":
            places[call.result] = place


def _answer(
    attacked: Attacked, root: str, swap: str, scene: Scene, canary: Path, number: int, last: int
) -> str:
    """The answer to a change at one boundary, once the scene has been looked through."""
    attacked.prepare(scene)
    target = Target(scene.base / root, attacked.targets[root], canary)
    change = SWAPS[swap](target)
    root_and_twin = [snapshot(target.root), snapshot(target.twin)] if swap == TWIN else []
    before = open_descriptors()
    with attacked.opening(scene) as (act, _), armed() as shim:
        _skip_syncs(shim)
        moment = shim.before if number <= last else shim.after
        moment("any", min(number, last), change)
        try:
            act()
            answer = "result"
        except Exception as error:
            answer = key_of(error, attacked.answers)
    require_single_closes(shim.calls)
    clean_up_fails = answer.startswith("clean-up ") or swap == "the staged file is a directory"
    left = close_what_was_left(before)
    assert len(left) <= (attacked.left_by_clean_up if clean_up_fails else 0), shim.calls
    if swap == TWIN:
        _require_one_tree_untouched(attacked, target, root_and_twin)
    _require_whole_files(attacked, swap, scene.base)
    return answer


def _require_one_tree_untouched(
    attacked: Attacked, target: Target, root_and_twin: list[Snapshot]
) -> None:
    """What was pinned is worked on, and the other of root and twin is left alone.

    An operation with a pin of its own may have pinned either.
    """
    at_end = [snapshot(target.twin.with_name("twin-before")), snapshot(target.root)]
    root_kept, twin_kept = (now == then for now, then in zip(at_end, root_and_twin, strict=True))
    assert twin_kept or (attacked.pins and root_kept)


def _require_whole_files(attacked: Attacked, swap: str, base: Path) -> None:
    # The path of a staged file no longer leads to it when the way there has changed.
    may_stay = attacked.stages_by_path and swap in WALK_SWAPS
    twin = (CANARY,) if swap == TWIN else ()
    empty = (b"",) if attacked.may_be_empty else ()
    for directory, _, names in os.walk(base):
        for path in [Path(directory, name) for name in names]:
            if not path.is_symlink():
                assert may_stay or not path.name.endswith(".tmp"), f"left behind: {path}"
                assert path.read_bytes() in (*WHOLE, *twin, *empty), f"torn or foreign: {path}"


def test_every_change_that_has_to_draw_something_is_made() -> None:
    named = {
        (name, root, swap)
        for name, roots in DRAWN.items()
        for root, draws in roots.items()
        for swap in draws
        if swap != "the parent links out"
    }
    assert named <= set(CASES)
