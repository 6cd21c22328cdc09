#!/usr/bin/env python3
"""Installs a received generation beside the old one; members that did not change are shared.

Exits with a failure if anything is not as promised, the old generation included.
"""

from __future__ import annotations

import argparse
import os
from collections import Counter
from collections.abc import Iterator, Sequence
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any

from brindlefen.distribution import client_manifest
from brindlefen.distribution.client_manifest import LoadedAcceptedDistributionSet

MIB = 1 << 20
SECTIONS = ("found_signals", "found_strategies", "useful_signals")
# Up to this size a member is taken into memory; a larger one is streamed.
WHOLE_BYTES = MIB
HOW = {
    "linked": "unchanged: one file under two names",
    "copied": "unchanged, but no link could be made",
    "written": "changed or new, small enough to be written in one piece",
    "streamed": "changed or new, larger than that",
}


@dataclass
class Installation:
    """Where a generation was installed, how each member got there, and what was cleared away."""

    target: str
    manifest_bytes: bytes
    old: LoadedAcceptedDistributionSet
    how: dict[str, str] = field(default_factory=dict)
    removed_files: list[str] = field(default_factory=list)
    removed_trees: list[str] = field(default_factory=list)


def install(old_directory: Path, received: Path, data_dir: Path) -> Installation:
    """Installs `received` where its market and era belong; `received` may lack unchanged members.

    It can be killed at any moment and run again. While it runs the target has no manifest, so
    nobody takes it for a distribution; the old generation is only read and linked.
    """
    # Nothing of the old generation is shared before it is proved.
    old = client_manifest.load_accepted_distribution_set(old_directory)
    proved = {path: old.manifest["files"][path] for path in old.membership_paths}

    # The manifest is what all else is held against. Whoever knows its digest checks it here.
    manifest_bytes = client_manifest.read_contained_regular_file(
        received, "manifest.json", label="received manifest"
    )
    manifest = client_manifest.parse_distribution_manifest_bytes(manifest_bytes)
    sidecar_path = client_manifest.validate_signals_index_manifest_declaration(manifest)
    sidecar = client_manifest.read_contained_regular_file(
        received, sidecar_path, label="received sidecar"
    )
    new = client_manifest.validate_accepted_distribution_set(manifest, sidecar)

    place = f"distribution/market_{manifest['market_id']}/era_{manifest['era_number']}"
    if Path(os.path.abspath(data_dir), place) == Path(os.path.abspath(old_directory)):
        raise SystemExit(f"the old generation lies there already: {place}")
    target = client_manifest.ensure_contained_directory(data_dir, place)
    # The manifest goes first and comes back last.
    client_manifest.remove_contained_regular_file(target, "manifest.json")

    done = Installation(target, manifest_bytes, old)
    for path in new.membership_paths:
        entry = manifest["files"][path]
        if is_same_content(proved.get(path), entry):
            # The same file under a second name, or a copy where that cannot be: it says which.
            done.how[path] = client_manifest.link_or_copy_contained_regular_file(
                old_directory, path, target, path
            )
        elif entry["size_bytes"] <= WHOLE_BYTES:
            content = client_manifest.read_contained_regular_file(
                received, path, label="received member"
            )
            client_manifest.write_contained_regular_file(target, path, content)
            done.how[path] = "written"
        else:
            client_manifest.copy_contained_regular_file(received, path, target, path)
            done.how[path] = "streamed"

    clear_leftovers(done, {sidecar_path, *new.membership_paths})
    client_manifest.write_contained_regular_file(target, sidecar_path, sidecar)
    # Proved before it can be seen: with a manifest given, the one on the disk is not asked for.
    client_manifest.load_accepted_distribution_set(target, manifest=manifest)
    # It was taken away above: one that is there again would be somebody else's.
    client_manifest.write_contained_regular_file(
        target, "manifest.json", manifest_bytes, allow_replace=False
    )
    return done


def is_same_content(old_entry: dict[str, Any] | None, entry: dict[str, Any]) -> bool:
    """Whether both manifests state one size and one digest."""
    if old_entry is None:
        return False
    return all(old_entry[name] == entry[name] for name in ("size_bytes", "sha256"))


def clear_leftovers(done: Installation, listed: set[str]) -> None:
    """Removes from the target what is not listed: an earlier attempt may have left anything."""
    done.removed_files += client_manifest.cleanup_contained_regular_files_in_prefixes(
        done.target, prefixes=("_control", *SECTIONS), preserve_relative_paths=listed
    )
    # That walk passes over names with a leading dot. A write that was killed leaves such a name.
    done.removed_files += client_manifest.cleanup_contained_regular_files(
        done.target, suffix=".tmp", preserve_relative_paths=listed
    )
    # Neither walk removes a directory, so those of retired entities are left.
    live = {"/".join(path.split("/")[:2]) for path in listed}
    for directory in sorted(entity_directories(done.target) - live):
        client_manifest.remove_contained_directory_tree(done.target, directory)
        done.removed_trees.append(directory)


def entity_directories(target: str) -> set[str]:
    """The directories `{section}/{entity}` that the target holds."""
    found = set()
    with client_manifest.PinnedRoot(target) as pinned:
        for section in set(SECTIONS) & set(pinned.list_directory_names()):
            with pinned.open_contained_root(section, label="section") as inner:
                found |= {f"{section}/{entity}" for entity in inner.list_directory_names()}
    return found


def file_number(directory: Path | str, path: str) -> tuple[int, int]:
    """Device and inode: two names of one file have the same."""
    found = client_manifest.stat_contained_regular_file(directory, path, label="member")
    return (found.st_dev, found.st_ino)


def show_the_installation(done: Installation, files: dict[str, Any], dropped: list[str]) -> None:
    """Prints what became of the members, and what was removed."""
    members = Counter(done.how.values())
    sizes: Counter[str] = Counter()
    for path, how in done.how.items():
        sizes[how] += files[path]["size_bytes"]
    for how, meaning in HOW.items():
        print(f"  {how:<9}{members[how]:>4}  {sizes[how] / MIB:>6.1f} MiB  {meaning}")
    for title, names in [
        ("dropped", dropped),
        ("removed", done.removed_files),
        ("and with", [f"{directory}/" for directory in done.removed_trees]),
    ]:
        print(f"  {title:<9}{len(names):>4}  {', '.join(names)}")


def broken_promises(done: Installation, old_directory: Path) -> Iterator[str]:
    """Proves both generations again and tells, in words, what is not as it should be."""
    loaded = client_manifest.load_accepted_distribution_set(done.target)
    if loaded.manifest_bytes != done.manifest_bytes:
        yield "the installed manifest is not the received one"
    listed = {"manifest.json", loaded.signals_index_path, *loaded.membership_paths}
    target = Path(done.target)
    if {str(p.relative_to(target)) for p in target.rglob("*") if not p.is_dir()} != listed:
        yield "the target holds other files than those that are listed"
    for path in set(done.how) & set(done.old.membership_paths):
        shared = file_number(done.target, path) == file_number(old_directory, path)
        if shared != (done.how[path] == "linked"):
            yield f"{done.how[path]}, but shared is {shared}: {path}"
    if "linked" not in done.how.values():
        yield "nothing was linked: do both generations lie on one file system?"
    again = client_manifest.load_accepted_distribution_set(old_directory)
    if again.manifest_bytes != done.old.manifest_bytes:
        yield "the old generation is not what it was"


def main(argv: Sequence[str] | None = None) -> int:
    """Installs what the command line names, and proves what came of it."""
    parser = argparse.ArgumentParser(description="Install a generation beside the old one.")
    parser.add_argument("old", type=Path, help="directory of the installed generation")
    parser.add_argument("received", type=Path, help="directory of the new one, or what changed")
    parser.add_argument("data_dir", type=Path, help="where generations are installed")
    given = parser.parse_args(argv)

    done = install(given.old, given.received, given.data_dir)
    manifest = client_manifest.load_accepted_distribution_set(done.target).manifest
    dropped = sorted(set(done.old.membership_paths) - set(done.how))
    print(f"installed generation {manifest['version']}")
    show_the_installation(done, manifest["files"], dropped)

    failures = list(broken_promises(done, given.old))
    market, era = manifest["market_id"], manifest["era_number"]
    record = client_manifest.local_client_manifest_metadata(
        given.data_dir, market_id=market, era_number=era
    )
    expected = {"version": manifest["version"], "market_id": market, "era_number": era}
    if record != {f"client_manifest_{name}": value for name, value in expected.items()}:
        failures.append(f"the metadata record is another: {record}")
    for failure in failures:
        print(f"FAILED: {failure}")
    if failures:
        return 1
    shared = next(path for path, how in done.how.items() if how == "linked")
    print(f"  shared   inode {file_number(done.target, shared)[1]} in both: {shared}")
    print(f"  metadata {record}")
    print("both generations are accepted; the target holds what is listed and nothing else")
    return 0


if __name__ == "__main__":
    raise SystemExit(main())
