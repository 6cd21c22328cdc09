"""Orders the workloads that write, remove and copy, and makes their rows."""

from __future__ import annotations

import shutil
from dataclasses import dataclass
from functools import partial
from pathlib import Path

from data_sets import MIB, Scale, copy_source
from report import Aim, Row, file_system
from workload import Commands, Programs, Rounds, Values, Workload

CHANGES = ("writes", "trees", "copies")

WRITES = {"replace": "one leaf replaced", "create": "new leaves"}
TREES = {
    "suffix": "remove_regular_files_with_suffix",
    "prefix": "remove_regular_files_in_prefixes",
    "remove": "remove_directory_tree",
}
COPIES = {
    "cp": "cp, then sync (the kernel copies)",
    "cp-reads": "cp --reflink=never, then sync (it reads and writes)",
    "module": "module",
    "plain": "plain Python, the stream alone",
}

IN_MEMORY = Path("/dev/shm")
ROOM_BYTES = 1 << 30


@dataclass(frozen=True)
class Places:
    """Where the changes are made: files that come and go, and copies."""

    scratch: Path
    copies: Path
    source: Path


def scratch_parent(directory: Path) -> Path:
    """A file system in memory, where the module's own cost shows, if there is one with room."""
    if IN_MEMORY.is_dir() and file_system(IN_MEMORY) == "tmpfs":
        if shutil.disk_usage(IN_MEMORY).free >= ROOM_BYTES:
            return IN_MEMORY
    return directory


def write_commands(places: Places, scale: Scale, programs: Programs) -> Commands:
    words = places.scratch, scale.writes, programs.floor
    return {
        f"writes {kind} {participant}": programs.one("writes", participant, kind, *words)
        for kind in WRITES
        for participant in ("floor", "module", "plain")
    }


def tree_commands(places: Places, scale: Scale, programs: Programs) -> Commands:
    words = places.scratch, "x".join(map(str, scale.tree)), programs.floor
    return {
        f"trees {operation} {participant}": programs.one("trees", participant, operation, *words)
        for operation in TREES
        for participant in ("floor", "module", "plain", "shutil")
        if participant != "shutil" or operation == "remove"
    }


def copy_commands(places: Places, _scale: Scale, programs: Programs) -> Commands:
    return {
        f"copies {participant}": programs.one("copies", participant, places.source, places.copies)
        for participant in COPIES
    }


def write_rows(found: Rounds, scale: Scale, places: Places) -> list[Row]:
    """CPU time of one write of 4 KiB."""
    rows = []
    for kind, told in WRITES.items():
        title = f"{scale.writes} writes of 4 KiB, {told} ({file_system(places.scratch)})"

        def each(participant: str, kind: str = kind) -> Values:
            total = found[f"writes {kind} {participant}"]["cpu"]
            return [seconds * 1e6 / scale.writes for seconds in total]

        reference = each("floor")
        rows += [
            Row(title, "floor", "us CPU", reference),
            Row(title, "module", "us CPU", each("module"), reference, Aim(1.25)),
            Row(title, "plain Python", "us CPU", each("plain"), reference),
        ]
    return rows


def tree_rows(found: Rounds, scale: Scale, places: Places) -> list[Row]:
    """CPU time of a whole tree's cleanup or removal."""
    markets, eras, entities, files = scale.tree
    count = markets * eras * entities * files
    names = {"module": "module", "shutil": "shutil.rmtree, no proofs", "plain": "plain Python"}
    rows = []
    for operation, told in TREES.items():
        title = f"{told}, {count} files ({file_system(places.scratch)})"
        reference = found[f"trees {operation} floor"]["cpu"]
        rows.append(Row(title, "floor", "s CPU", reference))
        for participant, name in names.items():
            values = found.get(f"trees {operation} {participant}")
            if values is not None:
                rows.append(Row(title, name, "s CPU", values["cpu"], reference))
    return rows


def copy_rows(found: Rounds, scale: Scale, places: Places) -> list[Row]:
    """Throughput and CPU time until the bytes are on the disk, and the memory on the way."""
    size = scale.copy_bytes / MIB
    title = f"copy of {size:.0f} MiB ({file_system(places.copies)})"
    speeds = {
        participant: [size / seconds for seconds in found[f"copies {participant}"]["wall"]]
        for participant in COPIES
    }
    times = {participant: found[f"copies {participant}"]["cpu"] for participant in COPIES}

    rows = []
    for about, unit, values in ((title, "MiB/s", speeds), (f"{title}: CPU", "s CPU", times)):
        for participant, name in COPIES.items():
            reference = None if participant == "cp" else values["cp"]
            rows.append(Row(about, name, unit, values[participant], reference))
    above = found["copies module"]["above"]
    rows.append(Row(f"{title}: memory", "module", "MiB above", above, aim=Aim(1.0)))
    return rows


def change_workloads(
    directory: Path, scratch: Path, scale: Scale, programs: Programs
) -> dict[str, Workload]:
    """The workloads by name; copies go to the file system of `directory`."""
    places = Places(scratch, directory, copy_source(directory, scale.copy_bytes))
    commands = {"writes": write_commands, "trees": tree_commands, "copies": copy_commands}
    rows = {"writes": write_rows, "trees": tree_rows, "copies": copy_rows}
    return {
        name: Workload(
            commands[name](places, scale, programs),
            partial(rows[name], scale=scale, places=places),
        )
        for name in CHANGES
    }
