"""Keeps daemon threads inside the module while the interpreter shuts down; run as a child."""

from __future__ import annotations

import sys
import threading
from pathlib import Path

from brindlefen.distribution import client_manifest

THREADS = 4


def work(root: Path, started: threading.Barrier) -> None:
    started.wait()
    while True:
        with client_manifest.PinnedRoot(root) as pinned:
            pinned.hash_regular_file("file", label="file")
            pinned.read_regular_file("file", label="file")
        client_manifest.parse_strict_json_object_bytes(b'{"a": {"b": [1]}}', label="document")


def main(root: Path, rounds: int) -> None:
    started = threading.Barrier(THREADS + 1)
    for _ in range(THREADS):
        threading.Thread(target=work, args=(root, started), daemon=True).start()
    started.wait()
    for _ in range(rounds):
        with client_manifest.PinnedRoot(root) as pinned:
            pinned.hash_regular_file("file", label="file")


if __name__ == "__main__":
    main(Path(sys.argv[1]), int(sys.argv[2]))
