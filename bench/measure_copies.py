"""Measures a copy until its bytes are on the disk, and the memory that it needs on the way."""

from __future__ import annotations

import os
import shutil
import subprocess
from collections.abc import Callable
from functools import partial
from pathlib import Path

from measuring import Result, forget_peak, peak_mib, require, timed, timed_programs

from brindlefen.distribution import client_manifest

CHUNK_BYTES = 1 << 20
ATTEMPTS = 3
NAME = "copied/pnl.arrow"

Copy = Callable[[Path, Path], object]


def by_module(source: Path, root: Path) -> None:
    client_manifest.copy_contained_regular_file(source.parent, source.name, root, NAME)


def by_plain_python(source: Path, root: Path) -> None:
    """The stream alone, through one buffer and without any proof."""
    buffer = memoryview(bytearray(CHUNK_BYTES))
    with open(source, "rb", buffering=0) as reader, open(root / NAME, "wb", buffering=0) as writer:
        while count := reader.readinto(buffer):
            require(writer.write(buffer[:count]) == count, "a whole write")
        os.fsync(writer.fileno())


def by_cp(source: Path, root: Path, *options: str) -> None:
    subprocess.run(["cp", *options, "--", source, root / NAME], check=True)
    subprocess.run(["sync", "--", root / NAME], check=True)


def by_cp_without_clones(source: Path, root: Path) -> None:
    """Reads and writes, where cp would otherwise leave the copying to the kernel."""
    by_cp(source, root, "--reflink=never")


HERE: dict[str, Copy] = {"module": by_module, "plain": by_plain_python}
PROGRAMS: dict[str, Copy] = {"cp": by_cp, "cp-reads": by_cp_without_clones}


def read_through(source: Path) -> None:
    """Brings the file into the page cache."""
    buffer = memoryview(bytearray(CHUNK_BYTES))
    with open(source, "rb", buffering=0) as reader:
        while reader.readinto(buffer):
            pass


def measured(participant: str, source: Path, small: Path, root: Path) -> Result:
    """The copy; beside it, for those in this process, the peak before it and after it.

    A copy of a few bytes comes first, so that the code and the interpreter's own buffers are in
    memory before the peak is begun anew.
    """
    if participant in PROGRAMS:
        return timed_programs(partial(PROGRAMS[participant], source, root))
    copy = HERE[participant]
    copy(small, root)
    (root / NAME).unlink()
    forget_peak()
    before = peak_mib()
    result = timed(lambda: copy(source, root))
    return result | {"above": peak_mib() - before}


def copies(participant: str, source_text: str, scratch: str) -> Result:
    """The fastest of a few copies to a name that is not there; of the peaks, the highest.

    One copy alone tells little: where the page cache gets memory that a virtual machine's host has
    yet to find, it takes twice the time and more, whoever copies.
    """
    source, root = Path(source_text), Path(scratch, "copies")
    shutil.rmtree(root, ignore_errors=True)
    (root / NAME).parent.mkdir(parents=True)
    small = root / "small"
    small.write_bytes(b"small")
    read_through(source)
    results = []
    for _ in range(ATTEMPTS):
        results.append(measured(participant, source, small, root))
        subprocess.run(["cmp", "--", source, root / NAME], check=True)
        (root / NAME).unlink()
    shutil.rmtree(root)
    above = max(result.get("above", 0.0) for result in results)
    return min(results, key=lambda result: result["wall"]) | {"above": above}
