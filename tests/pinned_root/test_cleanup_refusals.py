"""An unsafe target ends a cleanup; what went before it is gone, and the target is untouched."""

from __future__ import annotations

import errno
import os
from pathlib import Path

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.cleanups import CLEANUPS, by_prefix
from pinned_root.trees import FIFO, contents, link_to, plant
from support.descriptors import descriptors_kept
from support.failures import fails_with

EACH = pytest.mark.parametrize("walk", CLEANUPS)


@EACH
def test_the_target_of_a_link_outside_the_root_is_untouched(
    root: PinnedRoot, tree: Path, walk: str
) -> None:
    canary = tree.parent / "canary.tmp"
    canary.write_bytes(b"canary bytes")
    plant(tree, {"yard/link.tmp": link_to(str(canary))})
    with descriptors_kept(), pytest.raises(ValueError):
        CLEANUPS[walk](root, ())
    assert canary.read_bytes() == b"canary bytes"
    assert os.readlink(tree / "yard" / "link.tmp") == str(canary)


@EACH
def test_a_refusal_in_the_depth_closes_every_level(
    root: PinnedRoot, tree: Path, walk: str
) -> None:
    path = "yard/a/b/c/d/e/odd.tmp"
    plant(tree, {path: FIFO})
    text = f"contained cleanup target is a symlink or non-regular file: {path}"
    with descriptors_kept(), fails_with(ValueError, text):
        CLEANUPS[walk](root, ())


@EACH
def test_what_was_removed_before_the_stop_stays_removed(
    root: PinnedRoot, tree: Path, walk: str
) -> None:
    """A second call after the odd entry has gone removes and tells what the first left over."""
    paths = {f"yard/{number}/{number}.tmp" for number in range(40)}
    plant(tree, dict.fromkeys(paths, b""))
    plant(tree, {"yard/odd.tmp": FIFO})
    with descriptors_kept(), pytest.raises(ValueError):
        CLEANUPS[walk](root, ())
    left = tuple(sorted(paths & contents(tree).keys()))
    assert (tree / "yard" / "odd.tmp").exists()
    (tree / "yard" / "odd.tmp").unlink()
    assert CLEANUPS[walk](root, ()) == left


@EACH
@pytest.mark.parametrize("kind", ["link", "fifo"])
def test_each_of_many_odd_entries_stops_every_call_until_it_is_gone(
    root: PinnedRoot, tree: Path, walk: str, kind: str
) -> None:
    entry = {"link": link_to("nowhere"), "fifo": FIFO}[kind]
    paths = {f"yard/{number}.tmp" for number in range(3)}
    plant(tree, dict.fromkeys(paths, entry))
    while left := paths & contents(tree).keys():
        with pytest.raises(ValueError) as caught:
            CLEANUPS[walk](root, ())
        told = str(caught.value).rpartition(": ")[2]
        assert told in left
        (tree / told).unlink()
    assert CLEANUPS[walk](root, ()) == ()


def test_the_causes_name_the_entry_and_the_hosts_reason(root: PinnedRoot, tree: Path) -> None:
    plant(tree, {"yard/link": link_to("nowhere")})
    text = "contained cleanup target is a symlink or unsafe file: yard/link"
    with fails_with(ValueError, text, cause=OSError) as caught:
        by_prefix(root, ("yard",))
    cause = caught.error.__cause__
    assert isinstance(cause, OSError)
    assert (cause.errno, cause.filename) == (errno.ELOOP, "link")
    assert cause.__context__ is None
