#!/usr/bin/env python3
"""Writes a distribution that a client accepts: members, then the sidecar, then the manifest.

It needs no more than the standard library, and doubles as the format's how-to: each rule of the
format is told where the code that keeps it stands.
"""

from __future__ import annotations

import argparse
import hashlib
import json
from collections.abc import Iterable, Mapping, Sequence
from pathlib import Path
from typing import Any

from example_members import Member as Member
from example_members import content_of, digest_of, members_of

SECTIONS = ("found_signals", "found_strategies", "useful_signals")


def write_member(directory: Path, member: Member) -> str:
    """Writes one member below `directory` and returns its SHA-256."""
    # A relative path is exact: "/" between segments, none of them empty, "." or "..", no
    # backslash, no NUL, no blank at either end, no drive prefix. A client repairs nothing.
    path = directory / member.relative_path
    path.parent.mkdir(parents=True, exist_ok=True)
    digest = hashlib.sha256()
    with path.open("xb") as file:
        for piece in content_of(member):
            file.write(piece)
            digest.update(piece)
    return digest.hexdigest()


def manifest_entry(relative_path: str, kind: str, size_bytes: int, sha256: str) -> dict[str, Any]:
    """What the manifest says of one file."""
    return {
        # The entry repeats the key that it stands under.
        "relative_path": relative_path,
        # "found_signal_is_pnl" for found_signals/.../signal_is/pnl.arrow,
        # "found_strategy_is_epoch_pnl" for found_strategies/.../strategy_is/pnl.arrow,
        # "signals_index" for the sidecar and for nothing else. Elsewhere it is free.
        "kind": kind,
        "size_bytes": size_bytes,
        # Exactly 64 lower-case hexadecimal digits.
        "sha256": sha256,
    }


def signals_index_document(
    market_id: int, era_number: int, members: Iterable[Member]
) -> dict[str, Any]:
    """The sidecar's document: which entities exist, and which files belong to each."""
    # The document has these five members and no sixth. All three sections are required, even
    # when empty; an entity without files may leave `files` out.
    sections: dict[str, dict[str, dict[str, list[str]]]] = {name: {} for name in SECTIONS}
    for member in members:
        entity = sections[member.section].setdefault(member.entity_id, {"files": []})
        # A path belongs to one entity only, and stands in its list once.
        entity["files"].append(member.relative_path)
    return {"market_id": market_id, "era_number": era_number, **sections}


def canonical_bytes(document: Mapping[str, Any]) -> bytes:
    """The one byte sequence that may stand for `document` in a sidecar."""
    # Keys sorted at every depth, ", " and ": " between, ASCII only, one line, no newline at the
    # end. The digest of these bytes is the sidecar's name, so there is one spelling per content.
    return json.dumps(document, sort_keys=True, allow_nan=False).encode("utf-8")


def sidecar_path_for(sidecar_bytes: bytes) -> str:
    """Where a sidecar of these bytes lies: its name holds its own digest."""
    return f"_control/signals_index.{hashlib.sha256(sidecar_bytes).hexdigest()}.json"


def manifest_document(
    market_id: int,
    era_number: int,
    sidecar_bytes: bytes,
    files: Mapping[str, Mapping[str, Any]],
    version: int = 1,
) -> dict[str, Any]:
    """The manifest over `files` and the sidecar. It has no canonical form."""
    path = sidecar_path_for(sidecar_bytes)
    digest = hashlib.sha256(sidecar_bytes).hexdigest()
    entry = manifest_entry(path, "signals_index", len(sidecar_bytes), digest)
    return {
        # Which edition this is. Authentication ignores it; a client asks for it afterwards.
        "version": version,
        # Manifest and sidecar speak of the same market and era; both are positive integers.
        "market_id": market_id,
        "era_number": era_number,
        # The sections stand in the sidecar only; their names must not appear here.
        "signals_index": path,
        # A mapping from path to entry, not a list. It holds the sidecar, every member, and
        # perhaps more: a file that no entity owns is advertised, but is no member.
        "files": {path: entry, **files},
    }


def write_distribution(
    directory: Path,
    members: Sequence[Member],
    *,
    market_id: int,
    era_number: int,
    version: int = 1,
    since: int = 0,
) -> None:
    """Writes a distribution into `directory`, which is created or must be empty.

    Members that the generation `since` had already are described, but not written.
    """
    directory.mkdir(parents=True, exist_ok=True)
    if any(directory.iterdir()):
        raise SystemExit(f"not empty: {directory}")
    files = {}
    for member in members:
        new = member.revision > since
        digest = write_member(directory, member) if new else digest_of(member)
        files[member.relative_path] = manifest_entry(
            member.relative_path, member.kind, member.size_bytes, digest
        )
    sidecar = canonical_bytes(signals_index_document(market_id, era_number, members))
    sidecar_file = directory / sidecar_path_for(sidecar)
    sidecar_file.parent.mkdir()
    sidecar_file.write_bytes(sidecar)
    # The manifest comes last: until it is there, nobody takes the directory for a distribution.
    manifest = manifest_document(market_id, era_number, sidecar, files, version)
    (directory / "manifest.json").write_text(json.dumps(manifest, indent=2) + "\n", "utf-8")


def main(argv: Sequence[str] | None = None) -> int:
    """Writes the example distribution into the directory that the command line names."""
    parser = argparse.ArgumentParser(description="Write an example distribution.")
    parser.add_argument("directory", type=Path, help="created, or empty")
    parser.add_argument("--market", type=int, default=7, help="market id, above zero")
    parser.add_argument("--era", type=int, default=3, help="era number, above zero")
    parser.add_argument("--generation", type=int, default=1, help="1 or more")
    parser.add_argument("--since", type=int, default=0, help="leave out what this one had")
    arguments = parser.parse_args(argv)
    members = members_of(arguments.generation)
    write_distribution(
        arguments.directory,
        members,
        market_id=arguments.market,
        era_number=arguments.era,
        version=arguments.generation,
        since=arguments.since,
    )
    sizes = [member.size_bytes for member in members if member.revision > arguments.since]
    total = sum(sizes) / (1 << 20)
    print(f"wrote {len(sizes)} of {len(members)} members, {total:.1f} MiB")
    return 0


if __name__ == "__main__":
    raise SystemExit(main())
