"""Builds data directories: a flat manifest, and manifests by market and era."""

from __future__ import annotations

import json
from pathlib import Path
from typing import Any


def document(version: Any = 1, market_id: Any = 5, era_number: Any = 4) -> dict[str, Any]:
    return {"version": version, "market_id": market_id, "era_number": era_number}


def record(version: int = 1, market_id: int = 5, era_number: int = 4) -> dict[str, int]:
    """What is reported of `document` with the same numbers."""
    return {
        "client_manifest_version": version,
        "client_manifest_market_id": market_id,
        "client_manifest_era_number": era_number,
    }


def manifest_path(data_dir: Path, market: str | None = None, era: str = "era_4") -> Path:
    """The place of the manifest of one market and era, or of the flat one."""
    if market is None:
        return data_dir / "manifest.json"
    return data_dir / "distribution" / market / era / "manifest.json"


def put(path: Path, content: Any) -> Path:
    """Writes a manifest: bytes as they are, anything else as JSON."""
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(content if isinstance(content, bytes) else json.dumps(content).encode())
    return path
