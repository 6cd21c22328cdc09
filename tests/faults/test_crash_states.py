"""Whenever the power fails, a leaf is the old one or the whole new one, and a success lasts.

The calls of real runs are played over the model of a disk. The check would see each sync that
was left out: a record without it breaks a promise.
"""

from __future__ import annotations

from pathlib import Path

import pytest

from faults.crash_cases import CASES, LINKED_ALREADY, Recorded
from faults.crash_promises import broken_promises, syncs, without

# A publication within one directory syncs it twice over, once for each end of its rename, and
# nothing changes in between. Either sync keeps the promise that the new name lasts.
SYNCED_TWICE_OVER = {
    "replace in one directory",
    "copy over a file",
    "copy below a new root",
    "link over a file",
    "link below a new root",
    "copy where no link can be",
}


def _broken(recorded: Recorded, left_out: list[int] | None = None) -> list[str]:
    calls = without(recorded.calls, left_out or [])
    return broken_promises(calls, recorded.start, recorded.promise)


@pytest.mark.parametrize("name", CASES)
def test_every_crash_leaves_the_old_or_the_whole_new_and_success_lasts(
    name: str, tmp_path: Path
) -> None:
    assert _broken(CASES[name].record(tmp_path)) == []


@pytest.mark.parametrize("name", CASES)
def test_no_sync_can_be_left_out(name: str, tmp_path: Path) -> None:
    recorded = CASES[name].record(tmp_path)
    groups = syncs(recorded.calls, recorded.start)
    assert groups
    for group in groups:
        assert _broken(recorded, group) != [], [recorded.calls[number] for number in group]


@pytest.mark.parametrize("name", CASES)
def test_only_a_publication_within_one_directory_syncs_it_twice_over(
    name: str, tmp_path: Path
) -> None:
    recorded = CASES[name].record(tmp_path)
    sizes = [len(group) for group in syncs(recorded.calls, recorded.start)]
    twice_over = [2] if name in SYNCED_TWICE_OVER else [1]
    assert sizes == [1] * (len(sizes) - 1) + twice_over


def test_the_transfer_name_of_a_file_linked_onto_itself_is_gone_for_good(tmp_path: Path) -> None:
    recorded = LINKED_ALREADY.record(tmp_path)
    assert _broken(recorded) == []
    *_, last = syncs(recorded.calls, recorded.start)
    assert any(".tmp is left after success" in text for text in _broken(recorded, last))
