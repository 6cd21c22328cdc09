"""Builds one valid distribution, in memory and on disk, that a test breaks in a single place."""

from __future__ import annotations

import copy
import hashlib
import json
from collections.abc import Mapping
from dataclasses import dataclass
from pathlib import Path
from typing import Any

MARKET_ID = 7
ERA_NUMBER = 3

# No section's files stand in sorted order, and the sections' paths interleave, so that a walk
# in document order and a walk in sorted order never look alike.
SIGNAL_PNL = "found_signals/alpha/signal_is/pnl.arrow"
SIGNAL_FILE = "found_signals/alpha/params.json"
LAST_FILE = "zeta/last.bin"
STRATEGY_PNL = "found_strategies/gamma/strategy_is/pnl.arrow"
STRATEGY_FILE = "found_strategies/gamma/notes é.txt"
USEFUL_PNL = "useful_signals/delta/strategy_is/pnl.arrow"
FIRST_FILE = "a/first.bin"
MEMBERS = (
    FIRST_FILE,
    SIGNAL_FILE,
    SIGNAL_PNL,
    STRATEGY_FILE,
    STRATEGY_PNL,
    USEFUL_PNL,
    LAST_FILE,
)

# Advertised by the manifest, named by no membership, never written to the disk.
UNREFERENCED_FILE = "extra/unreferenced.bin"

PNL_KINDS = {SIGNAL_PNL: "found_signal_is_pnl", STRATEGY_PNL: "found_strategy_is_epoch_pnl"}

NOT_A_DIGEST = "G" * 64
OTHER_DIGEST = "0" * 64


def sha256_of(payload: bytes | bytearray) -> str:
    """The digest in the form that manifests use."""
    return hashlib.sha256(payload).hexdigest()


def canonical_bytes(document: Mapping[str, Any]) -> bytes:
    """The one byte sequence that a producer publishes for this signals index."""
    return json.dumps(document, sort_keys=True, allow_nan=False).encode("utf-8")


def sidecar_path_of(sidecar: bytes) -> str:
    """The content-addressed path of these sidecar bytes."""
    return f"_control/signals_index.{sha256_of(sidecar)}.json"


def file_entry(path: str, payload: bytes, kind: str = "other") -> dict[str, Any]:
    """The manifest's entry for one file."""
    return {
        "relative_path": path,
        "kind": kind,
        "size_bytes": len(payload),
        "sha256": sha256_of(payload),
    }


def index_document(
    *,
    found_signals: Any = None,
    found_strategies: Any = None,
    useful_signals: Any = None,
    market_id: Any = MARKET_ID,
    era_number: Any = ERA_NUMBER,
) -> dict[str, Any]:
    """A signals index; a section that is not given is empty."""
    return {
        "era_number": era_number,
        "found_signals": {} if found_signals is None else found_signals,
        "found_strategies": {} if found_strategies is None else found_strategies,
        "market_id": market_id,
        "useful_signals": {} if useful_signals is None else useful_signals,
    }


@dataclass
class Distribution:
    """A manifest, its sidecar and the bytes of its members, all of them free to be changed."""

    manifest: dict[str, Any]
    document: dict[str, Any]
    sidecar: bytes
    payloads: dict[str, bytes]

    @property
    def reference(self) -> str:
        """The path under which the manifest declares the sidecar."""
        path = self.manifest["signals_index"]
        assert isinstance(path, str)
        return path

    @property
    def files(self) -> dict[Any, Any]:
        """The manifest's entries by path."""
        entries = self.manifest["files"]
        assert isinstance(entries, dict)
        return entries

    @property
    def sidecar_entry(self) -> dict[str, Any]:
        """The manifest's entry for the sidecar."""
        entry = self.files[self.reference]
        assert isinstance(entry, dict)
        return entry

    def declare_sidecar(self, sidecar: bytes) -> None:
        """Publishes other sidecar bytes under their own digest, canonical or not."""
        members = {path: entry for path, entry in self.files.items() if path != self.reference}
        path = sidecar_path_of(sidecar)
        self.sidecar = sidecar
        self.manifest["signals_index"] = path
        self.manifest["files"] = {path: file_entry(path, sidecar, "signals_index"), **members}

    def publish_document(self) -> None:
        """Publishes `document` as it now stands as the sidecar."""
        self.declare_sidecar(canonical_bytes(self.document))

    def add_member(self, path: str, payload: bytes, kind: str = "other") -> None:
        """Advertises one more file and keeps its bytes; no membership names it yet."""
        self.files[path] = file_entry(path, payload, kind)
        self.payloads[path] = payload

    def manifest_bytes(self) -> bytes:
        """The manifest as a producer might write it; it has no canonical form."""
        return json.dumps(self.manifest, indent=1).encode("utf-8")

    def write(self, root: Path) -> Path:
        """Writes manifest, sidecar and members beneath `root`, which is made if needed."""
        root.mkdir(parents=True, exist_ok=True)
        contents = {"manifest.json": self.manifest_bytes(), self.reference: self.sidecar}
        for path, payload in {**contents, **self.payloads}.items():
            target = root / path
            target.parent.mkdir(parents=True, exist_ok=True)
            target.write_bytes(payload)
        return root

    def copy(self) -> Distribution:
        """An independent distribution with the same content."""
        return copy.deepcopy(self)


def build_distribution(
    document: dict[str, Any], payloads: Mapping[str, bytes], kinds: Mapping[str, str]
) -> Distribution:
    """A valid distribution with these memberships, member bytes and member kinds."""
    sidecar = canonical_bytes(document)
    path = sidecar_path_of(sidecar)
    files = {path: file_entry(path, sidecar, "signals_index")}
    for member, payload in payloads.items():
        files[member] = file_entry(member, payload, kinds.get(member, "other"))
    manifest = {
        "market_id": document["market_id"],
        "era_number": document["era_number"],
        "signals_index": path,
        "files": files,
    }
    return Distribution(manifest, document, sidecar, dict(payloads))


def valid_distribution() -> Distribution:
    """The distribution that the suites share: every section, every kind, files out of order."""
    document = index_document(
        found_signals={
            "alpha": {"files": [LAST_FILE, SIGNAL_PNL, SIGNAL_FILE], "score": 1.5},
            "beta": {"note": "a membership without files"},
        },
        found_strategies={"gamma": {"files": [STRATEGY_PNL, STRATEGY_FILE]}},
        useful_signals={"delta": {"files": [USEFUL_PNL, FIRST_FILE]}, "epsilon": {"files": []}},
    )
    payloads = {path: f"content of {path}".encode() for path in reversed(MEMBERS)}
    payloads[FIRST_FILE] = b""
    distribution = build_distribution(document, payloads, PNL_KINDS)
    distribution.files[UNREFERENCED_FILE] = file_entry(UNREFERENCED_FILE, b"never read")
    return distribution


def empty_distribution() -> Distribution:
    """The smallest valid distribution: three empty sections and no member."""
    return build_distribution(index_document(), {}, {})
