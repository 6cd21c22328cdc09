"""Makes the benchmark's distributions once, and gives them back on every later run."""

from __future__ import annotations

import hashlib
import json
import os
import shutil
from collections.abc import Sequence
from dataclasses import dataclass
from pathlib import Path

from produce_distribution import (
    Member,
    canonical_bytes,
    manifest_document,
    manifest_entry,
    sidecar_path_for,
    signals_index_document,
    write_distribution,
)

MARKET, ERA = 7, 3
ROOT_DEPTH = 5
MIB = 1 << 20


@dataclass(frozen=True)
class Scale:
    """How much each workload holds, and how often all of them are measured.

    `tree` has the number of directories in each directory on three levels, and then of files.
    """

    rounds: int
    small_members: int
    large_members: int
    large_bytes: int
    document_entries: int
    pair_small_members: int
    pair_large_bytes: int
    operations: int
    writes: int
    tree: tuple[int, int, int, int]
    copy_bytes: int


FULL = Scale(
    rounds=7,
    small_members=10_000,
    large_members=4,
    large_bytes=256 * MIB,
    document_entries=200_000,
    pair_small_members=2_500,
    pair_large_bytes=256 * MIB,
    operations=2_000,
    writes=20_000,
    tree=(5, 8, 10, 125),
    copy_bytes=1_024 * MIB,
)
QUICK = Scale(
    rounds=3,
    small_members=1_000,
    large_members=2,
    large_bytes=64 * MIB,
    document_entries=20_000,
    pair_small_members=500,
    pair_large_bytes=64 * MIB,
    operations=500,
    writes=2_000,
    tree=(2, 3, 5, 100),
    copy_bytes=64 * MIB,
)


@dataclass(frozen=True)
class OnDisk:
    """A distribution's root, and its list for the lower bound: sidecar first, then members."""

    root: Path
    listing: Path

    @property
    def small_file(self) -> str:
        """A member for the measurements of single operations."""
        return self.listing.read_text("utf-8").splitlines()[1].split(" ", 2)[2]


@dataclass(frozen=True)
class DataSets:
    """Everything that one run measures on."""

    small: OnDisk
    large: OnDisk
    documents: Path
    small_pair: tuple[OnDisk, OnDisk]
    large_pair: tuple[OnDisk, OnDisk]


def members_named(tag: str, count: int, size_bytes: int) -> list[Member]:
    """`count` members over all three sections, three and four segments deep."""
    members = []
    for number in range(count):
        entity = f"{tag}_{number:06}"
        section, path, kind = (
            ("found_signals", f"{entity}/signal_is/pnl.arrow", "found_signal_is_pnl"),
            ("found_strategies", f"{entity}/strategy_is/pnl.arrow", "found_strategy_is_epoch_pnl"),
            ("useful_signals", f"{entity}/pnl.arrow", "useful_signal_pnl"),
        )[number % 3]
        members.append(Member(section, entity, f"{section}/{path}", kind, size_bytes))
    return members


def root_below(directory: Path, name: str) -> Path:
    """A root of that name, at least five segments below the top of the file system."""
    lacking = max(0, ROOT_DEPTH - len((directory / name).parts[1:]))
    return directory.joinpath(*["level"] * lacking, name)


def distribution(directory: Path, tag: str, count: int, size_bytes: int) -> OnDisk:
    """The distribution of that shape, written unless a whole one is there."""
    name = f"{tag}-{count}x{size_bytes}"
    result = OnDisk(root_below(directory, name), directory / f"{name}.list")
    if not result.listing.exists():
        shutil.rmtree(result.root, ignore_errors=True)
        members = members_named(tag, count, size_bytes)
        write_distribution(result.root, members, market_id=MARKET, era_number=ERA)
        write_listing(result)
    return result


def write_listing(made: OnDisk) -> None:
    """Lists sidecar and members with digest and size. It comes last, so it marks a whole set."""
    manifest = json.loads((made.root / "manifest.json").read_bytes())
    files, sidecar = manifest["files"], manifest["signals_index"]
    paths = [sidecar, *sorted(path for path in files if path != sidecar)]
    lines = (f"{files[path]['sha256']} {files[path]['size_bytes']} {path}\n" for path in paths)
    made.listing.write_text("".join(lines), "utf-8")


def documents(directory: Path, entries: int) -> Path:
    """A manifest over `entries` files and a sidecar over every other one, without the files."""
    made = directory / f"documents-{entries}"
    if (made / "manifest.json").exists():
        return made
    made.mkdir(parents=True, exist_ok=True)
    advertised = members_named("document", entries, 4_096)
    members: Sequence[Member] = advertised[::2]
    sidecar = canonical_bytes(signals_index_document(MARKET, ERA, members))
    files = {
        member.relative_path: manifest_entry(
            member.relative_path,
            member.kind,
            member.size_bytes,
            hashlib.sha256(member.relative_path.encode()).hexdigest(),
        )
        for member in advertised
    }
    manifest = manifest_document(MARKET, ERA, sidecar, files)
    path = made / sidecar_path_for(sidecar)
    path.parent.mkdir(exist_ok=True)
    path.write_bytes(sidecar)
    (made / "manifest.json").write_text(json.dumps(manifest), "utf-8")
    return made


def copy_source(directory: Path, size_bytes: int) -> Path:
    """A file of that size without holes, written unless a whole one is there."""
    made = directory / f"copy-{size_bytes}"
    if not made.exists():
        unfinished = made.with_suffix(".unfinished")
        with open(unfinished, "wb") as file:
            for _ in range(size_bytes // MIB):
                file.write(os.urandom(MIB))
            file.flush()
            os.fsync(file.fileno())
        unfinished.rename(made)
    return made


def prepare(directory: Path, scale: Scale) -> DataSets:
    """All data sets of that scale below `directory`."""

    def pair(tag: str, count: int, size_bytes: int) -> tuple[OnDisk, OnDisk]:
        return (
            distribution(directory, f"{tag}_a", count, size_bytes),
            distribution(directory, f"{tag}_b", count, size_bytes),
        )

    return DataSets(
        small=distribution(directory, "small", scale.small_members, 4_096),
        large=distribution(directory, "large", scale.large_members, scale.large_bytes),
        documents=documents(directory, scale.document_entries),
        small_pair=pair("small", scale.pair_small_members, 4_096),
        large_pair=pair("large", 2, scale.pair_large_bytes),
    )
