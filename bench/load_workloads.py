"""Orders the workloads that load and read, and makes their rows."""

from __future__ import annotations

from functools import partial
from pathlib import Path

from data_sets import MIB, DataSets, OnDisk, Scale, prepare
from report import Aim, Row
from workload import Commands, Programs, Rounds, Values, Workload, less

LOADS = ("small", "large", "documents", "operations", "threads")

OPERATIONS = {
    "pin": "pin and close",
    "prove": "assert_root_unchanged",
    "read": "read_regular_file, 4 KiB",
    "hash": "hash_regular_file, 4 KiB",
    "stat": "stat_regular_file",
    "validate": "validate_manifest_relative_path",
}




def load_commands(name: str, on_disk: OnDisk, programs: Programs) -> Commands:
    return {
        f"{name} floor": programs.bound("load", on_disk.root, on_disk.listing),
        f"{name} module": programs.one("load", "module", on_disk.root),
        f"{name} plain": programs.one("load", "plain", on_disk.root),
    }


def digest_commands(on_disk: OnDisk, programs: Programs) -> Commands:
    return {
        f"large {tool}": programs.one(tool, on_disk.listing, on_disk.root)
        for tool in ("hashlib", "sha256sum")
    }


def document_commands(documents: Path, programs: Programs) -> Commands:
    return {
        f"documents {participant}": programs.one("documents", participant, documents)
        for participant in ("module", "host", "plain")
    }


def operation_commands(on_disk: OnDisk, scale: Scale, programs: Programs) -> Commands:
    words = on_disk.root, on_disk.small_file, scale.operations
    made = {
        f"floor {operation}": programs.bound(operation, *words)
        for operation in OPERATIONS
        if operation != "validate"
    }
    for participant in ("module", "plain"):
        made[f"operations {participant}"] = programs.one("operations", participant, *words)
    return made


def thread_commands(data: DataSets, programs: Programs) -> Commands:
    return {
        f"threads {name} {participant}": programs.one(
            "threads", participant, pair[0].root, pair[1].root
        )
        for name, pair in (("small", data.small_pair), ("large", data.large_pair))
        for participant in ("module", "plain")
    }


def load_workloads(directory: Path, scale: Scale, programs: Programs) -> dict[str, Workload]:
    """The workloads by name, on data sets below `directory`, which are made if they lack."""
    data = prepare(directory, scale)
    commands = {
        "small": load_commands("small", data.small, programs),
        "large": load_commands("large", data.large, programs)
        | digest_commands(data.large, programs),
        "documents": document_commands(data.documents, programs),
        "operations": operation_commands(data.small, scale, programs),
        "threads": thread_commands(data, programs),
    }
    rows = {
        "small": small_rows,
        "large": large_rows,
        "documents": document_rows,
        "operations": operation_rows,
        "threads": thread_rows,
    }
    return {
        name: Workload(commands[name], partial(rows[name], scale=scale)) for name in commands
    }


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
