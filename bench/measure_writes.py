"""Measures atomic writes of 4 KiB: one leaf again and again, or new leaves."""

from __future__ import annotations

import os
import shutil
from collections.abc import Callable, Iterable
from itertools import repeat
from pathlib import Path

import plain_python
import plain_writes
from measuring import Result, by_program, require, timed

from brindlefen.distribution import client_manifest

PAYLOAD = b"x" * 4_096
PARENT = "found_signals/entity_000001"

Write = Callable[[str], object]


def paths_for(kind: str, count: int) -> list[str]:
    """The paths to write, each three segments deep."""
    if kind == "replace":
        return [f"{PARENT}/pnl_000000.arrow"]
    return [f"{PARENT}/pnl_{number:06}.arrow" for number in range(count)]


def by_module(root: Path, allow_replace: bool, each: Callable[[Write], Result]) -> Result:
    with client_manifest.PinnedRoot(root) as pinned:
        write = pinned.write_atomic
        return each(lambda path: write(path, PAYLOAD, allow_replace=allow_replace))


def by_plain_python(root: Path, allow_replace: bool, each: Callable[[Write], Result]) -> Result:
    descriptor = os.open(root, plain_python.DIRECTORY_FLAGS)
    try:
        write = plain_writes.write_atomic
        return each(lambda path: write(descriptor, path, PAYLOAD, allow_replace=allow_replace))
    finally:
        os.close(descriptor)


PARTICIPANTS = {"module": by_module, "plain": by_plain_python}


def write_each(write: Write, paths: Iterable[str]) -> None:
    for path in paths:
        write(path)


def writes(participant: str, kind: str, scratch: str, count_text: str, floor: str) -> Result:
    """`count` writes beneath a new root, whose leaves lie there already if they are replaced."""
    root, count = Path(scratch, "writes"), int(count_text)
    shutil.rmtree(root, ignore_errors=True)
    (root / PARENT).mkdir(parents=True)
    paths = paths_for(kind, count)
    if kind == "replace":
        (root / paths[0]).write_bytes(b"old")
    if participant == "floor":
        command = [f"{floor}_writes", kind, str(root), str(count)]
        result = by_program(command, "".join(f"{path}\n" for path in paths))
    else:
        turns = repeat(paths[0], count) if kind == "replace" else paths
        result = PARTICIPANTS[participant](
            root, kind == "replace", lambda write: timed(lambda: write_each(write, turns))
        )
    left = [entry.path for entry in os.scandir(root / PARENT)]
    require(len(left) == len(paths), "one file for each path")
    require((root / paths[-1]).read_bytes() == PAYLOAD, "the payload at the last path")
    shutil.rmtree(root)
    return result
