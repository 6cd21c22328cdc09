"""Takes one measurement in a process of its own and prints it as one JSON object."""

from __future__ import annotations

import hashlib
import json
import subprocess
import sys
import threading
from collections.abc import Callable, Sequence
from functools import partial
from pathlib import Path
from typing import Any

import plain_documents
import plain_python
from measure_copies import copies
from measure_trees import trees
from measure_writes import writes
from measuring import Result, peak_mib, repeat, timed, timed_programs

from brindlefen.distribution import client_manifest

CHUNK_BYTES = 1 << 20


def documents_of(root: Path) -> tuple[bytes, bytes]:
    """The bytes of manifest and sidecar."""
    manifest = (root / "manifest.json").read_bytes()
    return manifest, (root / json.loads(manifest)["signals_index"]).read_bytes()


def judge_natively(manifest: bytes, sidecar: bytes) -> object:
    parsed = client_manifest.parse_distribution_manifest_bytes(manifest)
    return parsed, client_manifest.validate_accepted_distribution_set(parsed, sidecar)


def judge_plainly(manifest: bytes, sidecar: bytes) -> object:
    parsed = plain_documents.parse(manifest)
    return parsed, plain_documents.accepted_paths(parsed, sidecar)


def judge_by_host(manifest: bytes, sidecar: bytes) -> object:
    """What the host's own parser and serialiser need, with nothing judged."""
    document = json.loads(sidecar)
    return json.loads(manifest), document, json.dumps(document, sort_keys=True, allow_nan=False)


LOADS: dict[str, Callable[[str], object]] = {
    "module": client_manifest.load_accepted_distribution_set,
    "plain": plain_python.load,
}
JUDGES = {"module": judge_natively, "plain": judge_plainly, "host": judge_by_host}


def load(participant: str, root: str) -> Result:
    """A whole load, and apart from it the work on the two documents alone."""
    before = peak_mib()
    result = timed(lambda: LOADS[participant](root))
    result["peak_before"], result["peak"] = before, peak_mib()
    payloads = documents_of(Path(root))
    result["documents_cpu"] = timed(lambda: JUDGES[participant](*payloads))["cpu"]
    return result


def documents(participant: str, root: str) -> Result:
    """Both documents in memory; the digest of the sidecar is taken apart."""
    manifest, sidecar = documents_of(Path(root))
    result = timed(lambda: JUDGES[participant](manifest, sidecar))
    result["digest_cpu"] = timed(lambda: hashlib.sha256(sidecar))["cpu"]
    return result


def hash_files(listing: str, root: str) -> None:
    """The host's SHA-256 over all members, through one buffer of a chunk."""
    buffer = memoryview(bytearray(CHUNK_BYTES))
    for line in Path(listing).read_text("utf-8").splitlines():
        expected, _size, path = line.split(" ", 2)
        digest = hashlib.sha256()
        with open(Path(root, path), "rb", buffering=0) as file:
            while count := file.readinto(buffer):
                digest.update(buffer[:count])
        if digest.hexdigest() != expected:
            raise SystemExit("digest differs")


def hashlib_only(listing: str, root: str) -> Result:
    return timed(lambda: hash_files(listing, root))


def sha256sum(listing: str, root: str) -> Result:
    """The system's own tool, its start included."""
    lines = (line.split(" ", 2) for line in Path(listing).read_text("utf-8").splitlines())
    sums = "".join(f"{digest}  {path}\n" for digest, _size, path in lines).encode("utf-8")
    command = ["sha256sum", "--check", "--quiet"]
    return timed_programs(lambda: subprocess.run(command, cwd=root, input=sums, check=True))


def per_call(action: Callable[[], object], count: int) -> float:
    """Microseconds of CPU time for one call, after a tenth as many to warm up."""
    repeat(action, count // 10)
    return timed(partial(repeat, action, count))["cpu"] * 1e6 / count


def operations(participant: str, root: str, path: str, rounds: str) -> Result:
    """Single operations on a warm cache, in microseconds of CPU time."""
    make: Any = client_manifest.PinnedRoot
    validate: Any = client_manifest.validate_manifest_relative_path
    label = {"label": "file"}
    if participant == "plain":
        make, validate, label = plain_python.PlainRoot, plain_documents.safe_path, {}
    count = int(rounds)
    with make(root) as pinned:
        return {
            "pin": per_call(lambda: make(root).close(), count),
            "prove": per_call(pinned.assert_root_unchanged, count),
            "read": per_call(partial(pinned.read_regular_file, path, **label), count),
            "hash": per_call(partial(pinned.hash_regular_file, path, **label), count),
            "stat": per_call(partial(pinned.stat_regular_file, path, **label), count),
            "validate": per_call(partial(validate, path), count * 50),
        }


def together(action: Callable[[str], object], roots: Sequence[str]) -> None:
    """One thread for each root; a failure in any of them is a failure."""
    done: list[str] = []

    def work(root: str) -> None:
        action(root)
        done.append(root)

    threads = [threading.Thread(target=work, args=(root,)) for root in roots]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    if sorted(done) != sorted(roots):
        raise SystemExit("a thread failed")


def threads(participant: str, first: str, second: str) -> Result:
    """Two distributions by one thread, then by two at once."""
    action = LOADS[participant]
    alone = timed(lambda: [action(first), action(second)])
    both = timed(lambda: together(action, [first, second]))
    return {"alone": alone["wall"], "together": both["wall"]}


MEASUREMENTS: dict[str, Callable[..., Result]] = {
    "load": load,
    "documents": documents,
    "hashlib": hashlib_only,
    "sha256sum": sha256sum,
    "operations": operations,
    "threads": threads,
    "writes": writes,
    "trees": trees,
    "copies": copies,
}


if __name__ == "__main__":
    print(json.dumps(MEASUREMENTS[sys.argv[1]](*sys.argv[2:])))
