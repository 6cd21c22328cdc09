"""A copy holds one chunk in memory, whatever the size of the file."""

from __future__ import annotations

import os
import subprocess
import sys
from pathlib import Path

import pytest

SIZE = 64 * 2**20
ALLOWED_GROWTH = 8 * 2**20

SCRIPT = """
import resource, sys
from brindlefen.distribution import client_manifest

source, destination, route = sys.argv[1:]

class Forced(client_manifest.PinnedRoot):
    def open_regular_file_for_read(self, *args, **keywords):
        return super().open_regular_file_for_read(*args, **keywords)

    def open_regular_file_for_update(self, *args, **keywords):
        return super().open_regular_file_for_update(*args, **keywords)

if route == "forced":
    client_manifest.PinnedRoot = Forced

def peak():
    return resource.getrusage(resource.RUSAGE_SELF).ru_maxrss * 1024

copy = client_manifest.copy_contained_regular_file
copy(source, "small", destination, "small")
before = peak()
copy(source, "large", destination, "large")
print(peak() - before)
"""


@pytest.mark.parametrize("route", ["plain", "forced"])
def test_copying_a_large_file_needs_no_more_than_a_chunk(tmp_path: Path, route: str) -> None:
    (tmp_path / "small").write_bytes(b"\0" * 3 * 2**20)
    (tmp_path / "large").touch()
    os.truncate(tmp_path / "large", SIZE)
    environment = dict(os.environ)
    # A checking allocator keeps freed memory back; with little of that, growth is the module's.
    environment["ASAN_OPTIONS"] = ":".join(
        filter(None, [environment.get("ASAN_OPTIONS", ""), "quarantine_size_mb=1"])
    )
    ended = subprocess.run(
        [sys.executable, "-c", SCRIPT, str(tmp_path), str(tmp_path / "other"), route],
        env=environment,
        capture_output=True,
        text=True,
        check=False,
    )
    assert ended.returncode == 0, ended.stderr
    assert (tmp_path / "other" / "large").stat().st_size == SIZE
    (tmp_path / "other" / "large").unlink()
    assert int(ended.stdout) < ALLOWED_GROWTH
