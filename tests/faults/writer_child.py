"""One writer in a process of its own: waits for its start, and tells how its operations ended."""

from __future__ import annotations

import json
import sys
from pathlib import Path

from brindlefen.distribution import client_manifest

from faults.writers import Writer
from support.descriptors import descriptors_kept


def main(path: Path, number: int, seed: int, rounds: int) -> None:
    with client_manifest.PinnedRoot(path) as root:
        writer = Writer(path, root, number, seed)
        print("ready", flush=True)
        sys.stdin.readline()
        with descriptors_kept():
            writer.run(rounds)
    print(json.dumps(writer.outcomes), flush=True)


if __name__ == "__main__":
    main(Path(sys.argv[1]), *map(int, sys.argv[2:]))
