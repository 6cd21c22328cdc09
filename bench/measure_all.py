"""Measures every participant in every round, one after another, and prints one table."""

from __future__ import annotations

import argparse
import json
import os
import subprocess
import sys
from collections.abc import Callable, Sequence
from pathlib import Path

from data_sets import FULL, MIB, QUICK, DataSets, OnDisk, Scale, prepare
from report import Aim, Row, facts, table

Values = list[float]
Rounds = dict[str, dict[str, Values]]

ONE = str(Path(__file__).with_name("measure_one.py"))
OPERATIONS = {
    "pin": "pin and close",
    "prove": "assert_root_unchanged",
    "read": "read_regular_file, 4 KiB",
    "hash": "hash_regular_file, 4 KiB",
    "stat": "stat_regular_file",
    "validate": "validate_manifest_relative_path",
}


def jobs(data: DataSets, scale: Scale, floor: Path) -> dict[str, list[str]]:
    """The command of each measurement; each runs in a process of its own."""

    def one(*words: object) -> list[str]:
        return [sys.executable, ONE, *map(str, words)]

    def bound(*words: object) -> list[str]:
        return [str(floor), *map(str, words)]

    made: dict[str, list[str]] = {}
    for name, on_disk in (("small", data.small), ("large", data.large)):
        made[f"{name} floor"] = bound("load", on_disk.root, on_disk.listing)
        made[f"{name} module"] = one("load", "module", on_disk.root)
        made[f"{name} plain"] = one("load", "plain", on_disk.root)
    for tool in ("hashlib", "sha256sum"):
        made[f"large {tool}"] = one(tool, data.large.listing, data.large.root)
    for participant in ("module", "host", "plain"):
        made[f"documents {participant}"] = one("documents", participant, data.documents)
    add_operations(made, data.small, scale, bound, one)
    for name, pair in (("small", data.small_pair), ("large", data.large_pair)):
        for participant in ("module", "plain"):
            roots = (pair[0].root, pair[1].root)
            made[f"threads {name} {participant}"] = one("threads", participant, *roots)
    return made


def add_operations(
    made: dict[str, list[str]],
    on_disk: OnDisk,
    scale: Scale,
    bound: Callable[..., list[str]],
    one: Callable[..., list[str]],
) -> None:
    root, path = on_disk.root, on_disk.small_file
    for operation in OPERATIONS:
        if operation != "validate":
            made[f"floor {operation}"] = bound(operation, root, path, scale.operations)
    for participant in ("module", "plain"):
        made[f"operations {participant}"] = one(
            "operations", participant, root, path, scale.operations
        )


def measure(commands: dict[str, list[str]], rounds: int) -> Rounds:
    """Runs all commands in turn, `rounds` times, after one round that only warms the cache."""
    results: Rounds = {name: {} for name in commands}
    for turn in range(rounds + 1):
        print(f"round {turn} of {rounds}", file=sys.stderr)
        for name, command in commands.items():
            done = subprocess.run(command, stdout=subprocess.PIPE, check=True)
            if turn > 0:
                for key, value in json.loads(done.stdout).items():
                    results[name].setdefault(key, []).append(value)
    return results


def less(values: Sequence[float], others: Sequence[float]) -> Values:
    return [value - other for value, other in zip(values, others, strict=True)]


def small_rows(found: Rounds, scale: Scale) -> list[Row]:
    """CPU time of a load of many small members, with and without the documents."""
    title, unit = f"{scale.small_members} members of 4 KiB", "s CPU"
    floor, module, plain = (found[f"small {name}"] for name in ("floor", "module", "plain"))
    bare = less(module["cpu"], module["documents_cpu"])
    bare_plain = less(plain["cpu"], plain["documents_cpu"])
    return [
        Row(title, "floor (no documents)", unit, floor["cpu"]),
        Row(title, "module less documents", unit, bare, floor["cpu"], Aim(1.15)),
        Row(title, "module, all", unit, module["cpu"], floor["cpu"]),
        Row(title, "module, documents", unit, module["documents_cpu"]),
        Row(title, "plain Python less documents", unit, bare_plain, floor["cpu"]),
        Row(title, "plain Python, all", unit, plain["cpu"], floor["cpu"]),
    ]


def large_rows(found: Rounds, scale: Scale) -> list[Row]:
    """Throughput and peak memory of a load of few large members."""
    size = scale.large_members * scale.large_bytes / MIB
    title = f"{scale.large_members} members of {scale.large_bytes // MIB} MiB"

    def speed(name: str) -> Values:
        return [size / seconds for seconds in found[f"large {name}"]["wall"]]

    reference = speed("hashlib")
    peak = f"{title}: memory"
    module = found["large module"]
    return [
        Row(title, "hashlib, same chunks", "MiB/s", reference),
        Row(title, "module", "MiB/s", speed("module"), reference, Aim(0.97, at_least=True)),
        Row(title, "floor", "MiB/s", speed("floor"), reference),
        Row(title, "plain Python", "MiB/s", speed("plain"), reference),
        Row(title, "sha256sum --check", "MiB/s", speed("sha256sum"), reference),
        Row(peak, "interpreter before the load", "MiB peak", module["peak_before"]),
        Row(peak, "module", "MiB peak", module["peak"], aim=Aim(64)),
        Row(peak, "plain Python", "MiB peak", found["large plain"]["peak"]),
    ]


def document_rows(found: Rounds, scale: Scale) -> list[Row]:
    """CPU time of the two documents in memory, without the digest of the sidecar."""
    title, unit = f"documents of {scale.document_entries} entries", "s CPU"
    host, module, plain = (found[f"documents {name}"] for name in ("host", "module", "plain"))
    bare = less(module["cpu"], module["digest_cpu"])
    return [
        Row(title, "host's json, nothing judged", unit, host["cpu"]),
        Row(title, "module less digest", unit, bare, host["cpu"], Aim(1.5)),
        Row(title, "digest of the sidecar", unit, module["digest_cpu"]),
        Row(title, "plain Python", unit, plain["cpu"], host["cpu"]),
    ]


def operation_rows(found: Rounds, scale: Scale) -> list[Row]:
    """CPU time of single operations, against the floor where there is one."""
    rows = []
    for operation, title in OPERATIONS.items():
        reference = None
        if operation != "validate":
            total = found[f"floor {operation}"]["cpu"]
            reference = [seconds * 1e6 / scale.operations for seconds in total]
            rows.append(Row(title, "floor", "us CPU", reference))
        for participant, name in (("module", "module"), ("plain", "plain Python")):
            values = found[f"operations {participant}"][operation]
            rows.append(Row(title, name, "us CPU", values, reference))
    return rows


def thread_rows(found: Rounds, scale: Scale) -> list[Row]:
    """How many times faster two threads load two distributions than one thread does."""
    titles = {
        "small": f"two threads, {scale.pair_small_members} x 4 KiB each",
        "large": f"two threads, 2 x {scale.pair_large_bytes // MIB} MiB each",
    }
    rows = []
    for size, title in titles.items():
        for participant, name in (("module", "module"), ("plain", "plain Python")):
            times = found[f"threads {size} {participant}"]
            aim = Aim(1.5, at_least=True) if participant == "module" else None
            rows.append(Row(title, f"{name}, one thread", "s wall", times["alone"]))
            rows.append(Row(title, f"{name}, two threads", "s wall", times["together"]))
            gains = [a / b for a, b in zip(times["alone"], times["together"], strict=True)]
            rows.append(Row(title, f"{name}, gain", "times", gains, aim=aim))
    return rows


def main(argv: Sequence[str] | None = None) -> int:
    """Prepares the data sets, measures, and prints facts and table."""
    parser = argparse.ArgumentParser(prog="run", description="Measure the module.")
    parser.add_argument("directory", type=Path, nargs="?", help="for the data sets")
    parser.add_argument("--quick", action="store_true", help="smaller sets, fewer rounds")
    parser.add_argument("--default-directory", type=Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--floor", type=Path, required=True, help=argparse.SUPPRESS)
    arguments = parser.parse_args(argv)
    scale = QUICK if arguments.quick else FULL
    directory = Path(os.path.abspath(arguments.directory or arguments.default_directory))
    print("preparing the data sets", file=sys.stderr)
    data = prepare(directory, scale)
    depth = len(data.small.root.parts[1:])
    print(f"{facts(directory)}\nrounds        {scale.rounds}, roots {depth} segments deep\n")
    found = measure(jobs(data, scale, arguments.floor), scale.rounds)
    rows = [
        *small_rows(found, scale),
        *large_rows(found, scale),
        *document_rows(found, scale),
        *operation_rows(found, scale),
        *thread_rows(found, scale),
    ]
    print(table(rows))
    return 0


if __name__ == "__main__":
    raise SystemExit(main())
