"""Ends the process while daemon threads run finalisers from inside the module; run as a child."""

from __future__ import annotations

import hashlib
import sys
import threading
from pathlib import Path

from brindlefen.distribution.client_manifest import PinnedRoot

THREADS = 3


class Chunk(bytes):
    """Bytes whose finaliser gives the interpreter lock up, and so wants it back."""

    def __del__(self, digest: type = hashlib.sha256) -> None:  # type: ignore[assignment]
        digest(bytes(4096))


class File:
    """An open file that is read one chunk a byte."""

    def __init__(self, path: Path) -> None:
        self.file = open(path, "rb", buffering=0)

    def fileno(self) -> int:
        return self.file.fileno()

    def seek(self, offset: int, whence: int = 0, /) -> int:
        return self.file.seek(offset, whence)

    def read(self, size: int = -1, /) -> bytes:
        return Chunk(self.file.read(min(size, 1)))


def work(root: Path, started: threading.Barrier) -> None:
    pinned = PinnedRoot(root)
    file = File(root / "file")
    started.wait()
    while True:
        pinned.hash_open_regular_file(file, "file", label="file")


def main(root: Path, rounds: int) -> None:
    started = threading.Barrier(THREADS + 1)
    for _ in range(THREADS):
        threading.Thread(target=work, args=(root, started), daemon=True).start()
    started.wait()
    for _ in range(rounds):
        hashlib.sha256(bytes(4096))


if __name__ == "__main__":
    main(Path(sys.argv[1]), int(sys.argv[2]))
