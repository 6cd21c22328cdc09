#!/usr/bin/env python3
"""Proves a distribution, then shows that each of ten broken copies of it is refused.

Exits with a failure if a broken copy is accepted, or refused for another reason than its own.
"""

from __future__ import annotations

import argparse
import json
import os
import re
import shutil
import tempfile
import time
from collections.abc import Callable, Sequence
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from produce_distribution import canonical_bytes, manifest_entry, sidecar_path_for

from brindlefen.distribution import client_manifest

MIB = 1 << 20
MEMBER = "found_signals/signal_004/signal_is/pnl.arrow"


@dataclass(frozen=True)
class Breakage:
    """One change to a copy, and the failure that it must meet."""

    title: str
    make: Callable[[Path], Path]
    refusal: type[Exception]
    words: str


def replace_file(path: Path, content: bytes) -> None:
    """Puts a new file under the name: the old one is shared with the original by a hard link."""
    path.unlink()
    path.write_bytes(content)


def read_manifest(root: Path) -> dict[str, Any]:
    manifest: dict[str, Any] = json.loads((root / "manifest.json").read_bytes())
    return manifest


def sidecar_file(root: Path) -> Path:
    return root / str(read_manifest(root)["signals_index"])


def readdress_sidecar(root: Path, content: bytes) -> None:
    """Publishes other sidecar bytes with the right size, digest and path in the manifest."""
    manifest = read_manifest(root)
    sidecar_file(root).unlink()
    del manifest["files"][manifest["signals_index"]]
    path = sidecar_path_for(content)
    digest = path.split(".")[1]
    manifest["signals_index"] = path
    manifest["files"][path] = manifest_entry(path, "signals_index", len(content), digest)
    (root / path).write_bytes(content)
    replace_file(root / "manifest.json", json.dumps(manifest, indent=2).encode("utf-8"))


def flip_a_byte(root: Path) -> Path:
    content = bytearray((root / MEMBER).read_bytes())
    content[len(content) // 2] ^= 0x01
    replace_file(root / MEMBER, bytes(content))
    return root


def truncate_a_member(root: Path) -> Path:
    replace_file(root / MEMBER, (root / MEMBER).read_bytes()[:-1])
    return root


def remove_a_member(root: Path) -> Path:
    (root / MEMBER).unlink()
    return root


def swap_a_member_for_a_symlink(root: Path) -> Path:
    (root / MEMBER).rename(root / "elsewhere")
    (root / MEMBER).symlink_to(root / "elsewhere")
    return root


def repeat_a_manifest_key(root: Path) -> Path:
    text = (root / "manifest.json").read_bytes()
    replace_file(root / "manifest.json", text.replace(b"{", b'{"market_id": 7,', 1))
    return root


def space_in_the_sidecar(root: Path) -> Path:
    sidecar = sidecar_file(root)
    replace_file(sidecar, sidecar.read_bytes() + b" ")
    return root


def space_in_a_readdressed_sidecar(root: Path) -> Path:
    readdress_sidecar(root, sidecar_file(root).read_bytes() + b" ")
    return root


def leave_the_legacy_sidecar(root: Path) -> Path:
    (root / "signals_index.json").touch()
    return root


def list_a_member_twice(root: Path) -> Path:
    document = json.loads(sidecar_file(root).read_bytes())
    document["useful_signals"]["useful_000"]["files"].append(MEMBER)
    readdress_sidecar(root, canonical_bytes(document))
    return root


def reach_the_root_through_a_symlink(root: Path) -> Path:
    link = root.with_name("link")
    link.symlink_to(root, target_is_directory=True)
    return link


BREAKAGES = (
    Breakage("a byte of a member flipped", flip_a_byte, ValueError, "sha256"),
    Breakage("a member cut short by a byte", truncate_a_member, ValueError, "size"),
    Breakage("a member removed", remove_a_member, FileNotFoundError, "pnl.arrow"),
    Breakage("a member swapped for a symlink", swap_a_member_for_a_symlink, ValueError, "symlink"),
    Breakage(
        "a key twice in the manifest",
        repeat_a_manifest_key,
        client_manifest.ManifestJsonError,
        "duplicate object key: market_id",
    ),
    Breakage("a space behind the sidecar", space_in_the_sidecar, ValueError, "sidecar size"),
    Breakage(
        "the same space, readdressed", space_in_a_readdressed_sidecar, ValueError, "not canonical"
    ),
    Breakage("a legacy sidecar left over", leave_the_legacy_sidecar, ValueError, "legacy"),
    Breakage("a member listed twice", list_a_member_twice, ValueError, "duplicate membership"),
    Breakage(
        "the root behind a symlink", reach_the_root_through_a_symlink, ValueError, "pinned root"
    ),
)


def refusal_of(root: Path) -> Exception | None:
    """What the load of `root` raises, if anything."""
    try:
        client_manifest.load_accepted_distribution_set(root)
    except Exception as error:
        return error
    return None


def attempt(breakage: Breakage, original: Path, workshop: Path) -> Exception | None:
    """The refusal that one breakage of a fresh hard-linked copy meets, if any."""
    with tempfile.TemporaryDirectory(dir=workshop) as scratch:
        copy = Path(scratch, "copy")
        shutil.copytree(original, copy, copy_function=os.link)
        return refusal_of(breakage.make(copy))


def told(error: Exception | None) -> str:
    """Class and text of a failure, each digest cut to its first eight digits."""
    if error is None:
        return "ACCEPTED"
    text = re.sub(r"\b([0-9a-f]{8})[0-9a-f]{56}\b", r"\1...", str(error))
    return f"{type(error).__name__}: {text}"


def show_the_proof(directory: Path) -> None:
    """Loads the distribution and prints what was proved, and how fast."""
    began = time.perf_counter()
    loaded = client_manifest.load_accepted_distribution_set(directory)
    seconds = time.perf_counter() - began
    files = loaded.manifest["files"]
    total = sum(files[path]["size_bytes"] for path in loaded.membership_paths)
    print("accepted")
    print(f"  members   {len(loaded.membership_paths):>10}")
    print(f"  bytes     {total:>10}")
    print(f"  seconds   {seconds:>10.3f}")
    print(f"  MiB/s     {total / MIB / seconds:>10.0f}")


def show_the_refusals(directory: Path) -> bool:
    """Prints one row for each breakage; tells whether all were refused for their own reason."""
    width = max(len(breakage.title) for breakage in BREAKAGES)
    right = True
    print("refused, one change at a time (digests shortened)")
    with tempfile.TemporaryDirectory(dir=directory.parent, prefix=".broken-") as workshop:
        for breakage in BREAKAGES:
            error = attempt(breakage, directory, Path(workshop))
            expected = type(error) is breakage.refusal and breakage.words in str(error)
            right = right and expected
            mark = " " if expected else "!"
            print(f"{mark} {breakage.title:<{width}}  {told(error)}")
    return right


def main(argv: Sequence[str] | None = None) -> int:
    """Proves the directory that the command line names, before and after the broken copies."""
    parser = argparse.ArgumentParser(description="Authenticate a produced distribution.")
    parser.add_argument("directory", type=Path, help="as produce_distribution.py wrote it")
    directory = Path(os.path.abspath(parser.parse_args(argv).directory))
    show_the_proof(directory)
    if not show_the_refusals(directory):
        print("FAILED: a broken copy was not refused for its own reason")
        return 1
    if refusal_of(directory) is not None:
        print("FAILED: the original is no longer accepted")
        return 1
    print("all refused; the original is still accepted")
    return 0


if __name__ == "__main__":
    raise SystemExit(main())
