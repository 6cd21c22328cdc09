"""Judges manifest and sidecar in plain Python, with the same checks as the native module."""

from __future__ import annotations

import hashlib
import json
import re
from typing import Any

SECTIONS = ("found_signals", "found_strategies", "useful_signals")
SIDECAR = re.compile(r"_control/signals_index\.([0-9a-f]{64})\.json")
SHA256 = re.compile(r"[0-9a-f]{64}")
KIND_OF = {
    "found_signals": "found_signal_is_pnl",
    "found_strategies": "found_strategy_is_epoch_pnl",
}


def safe_path(path: object) -> str:
    """The path itself, if it is an exact relative one."""
    if not isinstance(path, str):
        raise TypeError("not text")
    if (
        not path
        or path != path.strip()
        or path.startswith("/")
        or path.endswith("/")
        or (len(path) >= 2 and path[0].isalpha() and path[1] == ":")
        or "\\" in path
        or "\0" in path
    ):
        raise ValueError("not an exact relative path")
    if any(segment in ("", ".", "..") for segment in path.split("/")):
        raise ValueError("empty, dot or parent segment")
    return path


def without_duplicates(pairs: list[tuple[str, Any]]) -> dict[str, Any]:
    document: dict[str, Any] = {}
    for key, value in pairs:
        if key in document:
            raise ValueError(f"key twice: {key}")
        document[key] = value
    return document


def refuse_constant(value: str) -> None:
    raise ValueError(f"not finite: {value}")


def parse(payload: bytes) -> dict[str, Any]:
    """One strict JSON object."""
    document = json.loads(
        payload.decode("utf-8"),
        object_pairs_hook=without_duplicates,
        parse_constant=refuse_constant,
    )
    if not isinstance(document, dict):
        raise ValueError("not an object")
    return document


def identity(value: object) -> int:
    if isinstance(value, bool) or not isinstance(value, int) or value <= 0:
        raise ValueError("not a positive integer")
    return value


def size_of(entry: dict[str, Any]) -> int:
    value = entry.get("size_bytes")
    if isinstance(value, bool) or not isinstance(value, int) or value < 0:
        raise ValueError("not a size")
    return value


def digest_of(entry: dict[str, Any]) -> str:
    value = entry.get("sha256")
    if not isinstance(value, str) or SHA256.fullmatch(value) is None:
        raise ValueError("not a digest")
    return value


def declared_sidecar(manifest: dict[str, Any]) -> str:
    """The path of the one sidecar that the manifest declares."""
    reference, files = safe_path(manifest.get("signals_index")), manifest.get("files")
    if any(section in manifest for section in SECTIONS):
        raise ValueError("inline sections")
    match = SIDECAR.fullmatch(reference)
    if match is None or not isinstance(files, dict):
        raise ValueError("no sidecar path, or no files")
    declared = []
    for path, entry in files.items():
        if safe_path(path) == "signals_index.json":
            raise ValueError("legacy sidecar")
        if not isinstance(entry, dict):
            continue
        if entry.get("relative_path") == "signals_index.json":
            raise ValueError("legacy sidecar")
        if entry.get("kind") == "signals_index":
            declared.append((path, entry))
    if len(declared) != 1 or declared[0][0] != reference:
        raise ValueError("not exactly one sidecar")
    entry = declared[0][1]
    if entry.get("relative_path") != reference or digest_of(entry) != match[1]:
        raise ValueError("the sidecar's entry disagrees with its path")
    size_of(entry)
    return reference


def parse_canonical(payload: bytes) -> dict[str, Any]:
    """The sidecar's document, if `payload` is its one spelling."""
    document = parse(payload)
    five = {name: identity(document.get(name)) for name in ("market_id", "era_number")}
    five |= {name: document[name] for name in SECTIONS}
    if json.dumps(five, sort_keys=True, allow_nan=False).encode("utf-8") != payload:
        raise ValueError("not canonical")
    return document


def references_of(document: dict[str, Any]) -> list[tuple[str, str]]:
    """Each membership path with its section, sorted; none has two owners."""
    references: list[tuple[str, str]] = []
    seen: dict[str, str] = {}
    for section in SECTIONS:
        for entity, membership in document[section].items():
            for path in membership.get("files", []):
                if safe_path(path) in seen:
                    raise ValueError(f"two owners: {path}")
                seen[path] = f"{section}.{entity}"
                references.append((path, section))
    return sorted(references)


def form_of(path: str) -> str | None:
    """The section whose profit-and-loss form the path has."""
    if path.startswith("found_signals/") and path.endswith("/signal_is/pnl.arrow"):
        return "found_signals"
    if path.startswith("found_strategies/") and path.endswith("/strategy_is/pnl.arrow"):
        return "found_strategies"
    if path.startswith("useful_signals/") and path.endswith(
        ("/signal_os/pnl.arrow", "/strategy_is/pnl.arrow")
    ):
        return "useful_signals"
    return None


def accepted_paths(manifest: dict[str, Any], sidecar: bytes) -> list[str]:
    """The membership paths, if manifest and sidecar are one closed set."""
    reference = declared_sidecar(manifest)
    files = manifest["files"]
    held_against(files[reference], len(sidecar), hashlib.sha256(sidecar).hexdigest())
    document = parse_canonical(sidecar)
    for name in ("market_id", "era_number"):
        if identity(manifest.get(name)) != document[name]:
            raise ValueError(f"{name} differs")
    references = references_of(document)
    for path, section in references:
        entry = files.get(path)
        if not isinstance(entry, dict) or entry.get("relative_path") != path:
            raise ValueError(f"not advertised: {path}")
        if section in KIND_OF:
            form = form_of(path)
            if form is not None and (form != section or entry.get("kind") != KIND_OF[section]):
                raise ValueError(f"another kind: {path}")
        digest_of(entry)
        size_of(entry)
    return [path for path, _section in references]


def held_against(entry: dict[str, Any], size: int, digest: str) -> None:
    if size_of(entry) != size or digest_of(entry) != digest:
        raise ValueError("size or digest differs")
