"""A move between file systems is the host's refusal, and leaves both names as they were."""

from __future__ import annotations

import errno
import shutil
import tempfile
from collections.abc import Iterator
from pathlib import Path

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.trees import DIRECTORY, contents, plant
from support.descriptors import descriptors_kept
from support.failures import fails_with

ELSEWHERE = Path("/dev/shm")


@pytest.fixture
def foreign(tree: Path) -> Iterator[Path]:
    """A directory on another device than the tree."""
    if not ELSEWHERE.is_dir() or ELSEWHERE.stat().st_dev == tree.stat().st_dev:
        pytest.skip("this machine has no second file system to write to")
    place = Path(tempfile.mkdtemp(dir=ELSEWHERE))
    yield place
    shutil.rmtree(place)


@pytest.mark.parametrize("target", ["fresh", "kept", "new/fresh"])
def test_there_is_no_fallback_to_a_copy(
    root: PinnedRoot, tree: Path, foreign: Path, target: str
) -> None:
    plant(foreign, {"kept": b"kept bytes"})
    source, destination = contents(tree), contents(foreign)
    with PinnedRoot(foreign) as other, descriptors_kept():
        with fails_with(OSError, None) as caught:
            root.move_regular_file_to("sub/inner.bin", other, target)
    assert isinstance(caught.error, OSError)
    assert caught.error.errno == errno.EXDEV
    assert caught.error.__context__ is None
    assert contents(tree) == source
    made = {"new": DIRECTORY} if target == "new/fresh" else {}
    assert contents(foreign) == {**destination, **made}


def test_the_failure_names_both_leaves(root: PinnedRoot, foreign: Path) -> None:
    with PinnedRoot(foreign) as other, fails_with(OSError, None) as caught:
        root.move_regular_file_to("sub/inner.bin", other, "new/fresh")
    assert isinstance(caught.error, OSError)
    assert (caught.error.filename, caught.error.filename2) == ("inner.bin", "fresh")


def test_a_refused_leaf_comes_before_the_other_device(
    root: PinnedRoot, tree: Path, foreign: Path
) -> None:
    plant(foreign, {"directory": DIRECTORY})
    text = "contained file destination is a symlink or non-regular file: directory"
    with PinnedRoot(foreign) as other, fails_with(ValueError, text):
        root.move_regular_file_to("sub/inner.bin", other, "directory")
    assert (tree / "sub" / "inner.bin").exists()
