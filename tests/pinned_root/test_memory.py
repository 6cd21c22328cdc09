"""Hashing holds one chunk in memory, whatever the size of the file."""

from __future__ import annotations

import os
import subprocess
import sys
from pathlib import Path

import pytest

SIZE = 512 * 2**20
ALLOWED_GROWTH = 8 * 2**20

# The digest is of as many zero bytes, made by the host from the same chunks.
SCRIPT = """
import hashlib, resource, sys
from brindlefen.distribution.client_manifest import PinnedRoot

tree, forced = sys.argv[1], sys.argv[2] == "forced"

class Forced(PinnedRoot):
    def hash_open_regular_file(self, *args, **keywords):
        return super().hash_open_regular_file(*args, **keywords)
    def assert_open_regular_file_identity(self, *args, **keywords):
        return super().assert_open_regular_file_identity(*args, **keywords)

def peak():
    return resource.getrusage(resource.RUSAGE_SELF).ru_maxrss * 1024

with (Forced if forced else PinnedRoot)(tree) as root:
    root.hash_regular_file("small", label="file")
    before = peak()
    identity = root.hash_regular_file("large", label="file")
    growth = peak() - before

zeros = bytes(2**20)
expected = hashlib.sha256()
for _ in range(identity.size_bytes // 2**20):
    expected.update(zeros)
assert identity.sha256 == expected.hexdigest()
print(identity.size_bytes, growth)
"""


@pytest.mark.parametrize("route", ["plain", "forced"])
def test_hashing_a_large_sparse_file_needs_no_more_than_a_chunk(
    tmp_path: Path, route: str
) -> None:
    (tmp_path / "small").write_bytes(b"\0" * 3 * 2**20)
    (tmp_path / "large").touch()
    os.truncate(tmp_path / "large", SIZE)
    environment = dict(os.environ)
    # A checking allocator keeps freed memory back; with little of that, growth is the module's.
    environment["ASAN_OPTIONS"] = ":".join(
        filter(None, [environment.get("ASAN_OPTIONS", ""), "quarantine_size_mb=1"])
    )
    ended = subprocess.run(
        [sys.executable, "-c", SCRIPT, str(tmp_path), route],
        env=environment,
        capture_output=True,
        text=True,
        check=False,
    )
    assert ended.returncode == 0, ended.stderr
    size, growth = map(int, ended.stdout.split())
    assert size == SIZE
    assert growth < ALLOWED_GROWTH
