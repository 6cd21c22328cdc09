"""Uses an installed module once, with nothing but the installation: run with `python -I`."""

from __future__ import annotations

import hashlib
import json
import sys
from importlib import resources
from pathlib import Path
from tempfile import TemporaryDirectory

from brindlefen.distribution import client_manifest

MEMBER = "found_signals/alpha/parameters.bin"
CONTENT = b"what the producer published"


def entry(path: str, content: bytes, kind: str) -> dict[str, object]:
    return {
        "relative_path": path,
        "kind": kind,
        "size_bytes": len(content),
        "sha256": hashlib.sha256(content).hexdigest(),
    }


def write_distribution(root: Path) -> None:
    document = {
        "market_id": 7,
        "era_number": 3,
        "found_signals": {"alpha": {"files": [MEMBER]}},
        "found_strategies": {},
        "useful_signals": {},
    }
    sidecar = json.dumps(document, sort_keys=True).encode()
    reference = f"_control/signals_index.{hashlib.sha256(sidecar).hexdigest()}.json"
    manifest = {
        "market_id": 7,
        "era_number": 3,
        "signals_index": reference,
        "files": {
            reference: entry(reference, sidecar, "signals_index"),
            MEMBER: entry(MEMBER, CONTENT, "parameters"),
        },
    }
    contents = {"manifest.json": json.dumps(manifest).encode(), reference: sidecar, MEMBER: CONTENT}
    for path, content in contents.items():
        (root / path).parent.mkdir(parents=True, exist_ok=True)
        (root / path).write_bytes(content)


def main() -> None:
    installed = Path(client_manifest.__file__)
    assert installed.is_relative_to(sys.prefix), f"not from this environment: {installed}"
    package = resources.files("brindlefen.distribution")
    for name in ("py.typed", "client_manifest.pyi"):
        assert (package / name).is_file(), f"missing in the package: {name}"
    with TemporaryDirectory() as directory:
        root = Path(directory)
        write_distribution(root)
        loaded = client_manifest.load_accepted_distribution_set(root)
        assert loaded.accepted.membership_paths == (MEMBER,)
        (root / MEMBER).write_bytes(CONTENT.upper())
        try:
            client_manifest.load_accepted_distribution_set(root)
        except ValueError as error:
            print(f"refused, as it must be: {error}")
        else:
            raise AssertionError("a changed member was accepted")
    print(f"works: {installed}")


if __name__ == "__main__":
    main()
