"""Measures every participant in every round, one after another, and prints one table."""

from __future__ import annotations

import argparse
import json
import os
import subprocess
import sys
from collections.abc import Sequence
from pathlib import Path
from tempfile import TemporaryDirectory

from change_workloads import CHANGES, change_workloads, scratch_parent
from data_sets import FULL, QUICK, Scale, root_below
from load_workloads import LOADS, load_workloads
from report import facts, table
from workload import Commands, Programs, Rounds, Workload


def measure(commands: Commands, rounds: int) -> Rounds:
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


def prepared(
    chosen: Sequence[str], directory: Path, scratch: Path, scale: Scale, programs: Programs
) -> list[Workload]:
    """The chosen workloads, with the data sets that they need."""
    found: dict[str, Workload] = {}
    if not set(LOADS).isdisjoint(chosen):
        found |= load_workloads(directory, scale, programs)
    if not set(CHANGES).isdisjoint(chosen):
        found |= change_workloads(directory, scratch, scale, programs)
    return [workload for name, workload in found.items() if name in chosen]


def run(chosen: Sequence[str], directory: Path, scale: Scale, programs: Programs) -> None:
    """Measures and prints; what was written on the way is gone afterwards."""
    directory.mkdir(parents=True, exist_ok=True)
    with TemporaryDirectory(prefix="bench-", dir=scratch_parent(directory)) as scratch:
        print("preparing the data sets", file=sys.stderr)
        workloads = prepared(chosen, directory, Path(scratch), scale, programs)
        depth = len(root_below(directory, "any").parts[1:])
        print(f"{facts(directory)}\nrounds        {scale.rounds}, roots {depth} segments deep\n")
        commands: Commands = {}
        for workload in workloads:
            commands |= workload.commands
        found = measure(commands, scale.rounds)
        print(table([row for workload in workloads for row in workload.rows(found)]))


def main(argv: Sequence[str] | None = None) -> int:
    """Reads the command line and measures what it asks for."""
    names = [*LOADS, *CHANGES]
    only = f"this workload alone, and others that are given so: {', '.join(names)}"
    parser = argparse.ArgumentParser(prog="run", description="Measure the module.")
    parser.add_argument("directory", type=Path, nargs="?", help="for the data sets")
    parser.add_argument("--quick", action="store_true", help="smaller sets, fewer rounds")
    parser.add_argument("--only", action="append", choices=names, metavar="WORKLOAD", help=only)
    parser.add_argument("--default-directory", type=Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--floor", type=Path, required=True, help=argparse.SUPPRESS)
    arguments = parser.parse_args(argv)
    directory = Path(os.path.abspath(arguments.directory or arguments.default_directory))
    scale = QUICK if arguments.quick else FULL
    run(arguments.only or names, directory, scale, Programs(arguments.floor))
    return 0


if __name__ == "__main__":
    raise SystemExit(main())
