"""A directory is walked without being collected first, so that its width costs no memory."""

from __future__ import annotations

import os
import shutil
import stat
import subprocess
import sys
import tempfile
from collections.abc import Iterator
from pathlib import Path

import pytest

WIDTH = 20_000
# The names alone, which end in the suffix of no cleanup, are more than this.
ALLOWED_GROWTH = 3 * 2**20

SCRIPT = """
import resource, sys
from brindlefen.distribution.client_manifest import PinnedRoot

place, operation = sys.argv[1:]

def run(root, name):
    if operation == "tree":
        assert root.remove_directory_tree(name, missing_ok=False) is True
    elif operation == "suffix":
        assert root.remove_regular_files_with_suffix(".tmp", preserve_relative_paths=()) == ()
    else:
        none = root.remove_regular_files_in_prefixes((name + "/x",), preserve_relative_paths=())
        assert none == ()

def peak():
    return resource.getrusage(resource.RUSAGE_SELF).ru_maxrss * 1024

with PinnedRoot(place) as root:
    with root.open_contained_root("small", label="small") as small:
        run(small, "inner")
    before = peak()
    run(root, "wide")
    print(peak() - before)
"""


@pytest.fixture
def wide(tmp_path: Path) -> Iterator[Path]:
    """A wide directory, in memory where there is one: its making takes seconds on a disk."""
    memory = Path("/dev/shm")
    place = Path(tempfile.mkdtemp(dir=memory if os.access(memory, os.W_OK) else tmp_path))
    (place / "small" / "inner").mkdir(parents=True)
    (place / "small" / "inner" / "file").touch()
    (place / "wide").mkdir()
    descriptor = os.open(place / "wide", os.O_RDONLY | os.O_DIRECTORY)
    for number in range(WIDTH):
        os.mknod(f"{number:0>250}", stat.S_IFREG | 0o600, dir_fd=descriptor)
    os.close(descriptor)
    yield place
    shutil.rmtree(place)


def growth_of(operation: str, place: Path) -> int:
    """By how many bytes the walk over the wide directory raises the peak of a fresh process."""
    environment = dict(os.environ)
    # A checking allocator keeps freed memory back; with little of that, growth is the module's.
    environment["ASAN_OPTIONS"] = ":".join(
        filter(None, [environment.get("ASAN_OPTIONS", ""), "quarantine_size_mb=1"])
    )
    ended = subprocess.run(
        [sys.executable, "-c", SCRIPT, str(place), operation],
        env=environment,
        capture_output=True,
        text=True,
        check=False,
    )
    assert ended.returncode == 0, ended.stderr
    return int(ended.stdout)


def test_walks_over_a_wide_directory_need_no_more_than_a_few_entries(wide: Path) -> None:
    for operation in ("suffix", "prefix", "tree"):
        assert growth_of(operation, wide) < ALLOWED_GROWTH, operation
    assert not (wide / "wide").exists()
