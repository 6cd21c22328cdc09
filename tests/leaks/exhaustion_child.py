"""Makes one allocation after another fail in each operation, and tells what that left behind."""

from __future__ import annotations

import gc
import os
import sys
from collections.abc import Callable
from pathlib import Path

import _testcapi  # type: ignore[import-not-found]
from brindlefen.distribution import client_manifest

# Behind this many allocations in a row that were not needed, all have been made to fail.
ENOUGH = 5


def operations(place: Path) -> dict[str, Callable[[], object]]:
    """One call of each kind, all of which can be made again and again."""
    root, other = str(place / "root"), str(place / "other")
    client_manifest.write_contained_regular_file(root, "sub/leaf", b"content")
    client_manifest.write_contained_regular_file(other, "sub/leaf", b"content")
    m = client_manifest
    return {
        "read": lambda: m.read_contained_regular_file(root, "sub/leaf", label="file"),
        "hash": lambda: m.hash_contained_regular_file(root, "sub/leaf", label="file"),
        "write": lambda: m.write_contained_regular_file(root, "sub/leaf", b"content"),
        "copy": lambda: m.copy_contained_regular_file(root, "sub/leaf", other, "sub/copy"),
        "link": lambda: m.link_or_copy_contained_regular_file(
            root, "sub/leaf", other, "sub/link"
        ),
        "clean": lambda: m.cleanup_contained_regular_files(
            root, suffix=".tmp", preserve_relative_paths=set()
        ),
        "whole": lambda: m.hash_regular_file_path(f"{root}/sub/leaf", label="file"),
    }


def open_descriptors() -> set[str]:
    return set(os.listdir("/proc/self/fd"))


def exhausted(act: Callable[[], object], linked: Path) -> list[str]:
    """What was wrong after any of the failures."""
    wrong = []
    unneeded = number = 0
    before = open_descriptors()
    while unneeded < ENOUGH:
        # A link onto itself would leave its other name to the clean-up, which needs memory too.
        linked.unlink(missing_ok=True)
        _testcapi.set_nomemory(number, number + 1)
        try:
            act()
            unneeded += 1
        except BaseException:
            unneeded = 0
        finally:
            _testcapi.remove_mem_hooks()
        gc.collect()
        if len(open_descriptors()) != len(before):
            wrong.append(f"allocation {number} left a descriptor open")
            before = open_descriptors()
        number += 1
    return wrong


def main(place: Path) -> None:
    for name, act in operations(place).items():
        for _ in range(3):
            act()
        wrong = exhausted(act, place / "other/sub/link")
        left = [str(path) for path in place.rglob("*.tmp")]
        print(name, *wrong, *left, sep="; ")


if __name__ == "__main__":
    main(Path(sys.argv[1]))
