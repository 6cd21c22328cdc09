"""The trace tells streams by their sums and drawn names without what was drawn."""

from __future__ import annotations

import os
from pathlib import Path

import pytest

from faults.injection import armed
from faults.trace import DIRECTORY_FLAGS, essential


@pytest.fixture()
def directory(tmp_path: Path) -> Path:
    (tmp_path / "file").write_bytes(b"content")
    return tmp_path


def test_streams_are_told_with_their_sum_and_files_with_the_size_they_are_cut_to(
    directory: Path,
) -> None:
    with armed() as shim:
        file = os.open(directory / "file", os.O_RDWR | os.O_CLOEXEC | os.O_NOFOLLOW)
        os.ftruncate(file, 3)
        for part in (b"one", b"three"):
            os.write(file, part)
        os.close(file)
    place = f"{directory}/file"
    assert essential(shim.calls, {}) == [
        f"open {place} update",
        f"ftruncate {place} 3",
        f"write {place} 8 bytes",
        f"close {place}",
    ]


def test_names_with_drawn_numbers_are_told_without_them(directory: Path) -> None:
    token = "0123456789abcdef"
    above = os.open(directory, DIRECTORY_FLAGS)
    with armed() as shim:
        for name in (f"leaf.{token}.tmp", f".leaf.1.2.{token}.tmp", "leaf.0123.tmp"):
            os.link("file", name, src_dir_fd=above, dst_dir_fd=above)
            os.unlink(name, dir_fd=above)
        os.mkdir("sub", dir_fd=above)
        os.rmdir("sub", dir_fd=above)
    os.close(above)
    assert essential(shim.calls, {above: "above"}) == [
        "linkat above file to above leaf.tmp 0x400",
        "unlinkat above leaf.tmp",
        "linkat above file to above .leaf.tmp 0x400",
        "unlinkat above .leaf.tmp",
        "linkat above file to above leaf.0123.tmp 0x400",
        "unlinkat above leaf.0123.tmp",
        "mkdirat above sub 777",
        "unlinkat above sub directory",
    ]
