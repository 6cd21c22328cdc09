"""Lists every operation of the module with its parameters, and a value for each of them."""

from __future__ import annotations

import os
from collections.abc import Callable, Iterator
from dataclasses import dataclass, fields
from pathlib import Path
from typing import Any

from brindlefen.distribution import client_manifest

from frame.surface import FUNCTIONS, METHODS
from frame.windows_surface import BOUNDARY_METHODS, WINDOWS_METHODS

# No directory, nor one that could be made: the path goes on beneath a file.
NOWHERE = Path(__file__) / "no directory"

# A value for each parameter name. Whether it is a good one matters little: it must only not be
# refused by a TypeError, so that a TypeError can come from nothing but the shape of the call.
SAMPLES: dict[str, Any] = {
    "_boundary": None,
    "_exc": None,
    "_exc_type": None,
    "_path": NOWHERE,
    "_traceback": None,
    "actual_sha": "0" * 64,
    "actual_size": 0,
    "allow_replace": False,
    "anchor_descriptor": -1,
    "anchor_handle": 4,
    "chunk_bytes": 1,
    "components": (),
    "create": False,
    "data_dir": NOWHERE,
    "delete": False,
    "desired_access": 1,
    "destination_name": "name",
    "destination_parent": 4,
    "destination_relative_path": "a/b",
    "destination_root": NOWHERE,
    "disposition": 1,
    "document": {},
    "encoded_name": b"a\0",
    "entry": {"size_bytes": 0, "sha256": "0" * 64},
    "era_number": 1,
    "exclusive": False,
    "expected_directory": 4,
    "expected_parent": 4,
    "expected_stat": os.stat("/"),
    "field": "st_mtime",
    "file": object(),
    "file_name_length": 2,
    "file_stat": os.stat("/"),
    "handle": 4,
    "identity": object(),
    "label": "label",
    "manifest": {},
    "manifest_bytes": b"{}",
    "market_id": 1,
    "membership_payloads": None,
    "missing_ok": False,
    "mode": "rb",
    "name": "name",
    "options": 1,
    "pairs": [("key", 1)],
    "parent": 4,
    "parent_descriptor": -1,
    "path": NOWHERE,
    "payload": b"{}",
    "platform_name": "posix",
    "pointer_size": 8,
    "prefixes": ("a",),
    "preserve_relative_paths": (),
    "relative_path": "a/b",
    "replace": False,
    "root": NOWHERE,
    "safe_path": "a/b",
    "signals_index_bytes": b"{}",
    "source": 4,
    "source_relative_path": "a/b",
    "source_root": NOWHERE,
    "status": 0,
    "suffix": ".tmp",
    "value": 1,
    "volume_path": "\\\\?\\C:\\",
    "writable": False,
}


def unmade(kind: Any) -> Any:
    """An instance that pins or loads nothing: a right call fails on its missing attributes."""
    return kind.__new__(kind)


# This one looks at the type of its argument first of all.
TYPED = {
    "_WindowsPinnedRoot.move_regular_file_to": {
        "destination_root": unmade(client_manifest._WindowsPinnedRoot)
    }
}


@dataclass(frozen=True)
class Operation:
    """One callable, and its parameters by kind."""

    name: str
    call: Callable[..., object]
    positional: tuple[str, ...]
    keyword_only: tuple[str, ...]
    optional: frozenset[str]

    def arguments(self, names: tuple[str, ...]) -> dict[str, Any]:
        samples = {**SAMPLES, **TYPED.get(self.name, {})}
        return {name: samples.get(name) for name in names}

    @property
    def by_position(self) -> list[Any]:
        return list(self.arguments(self.positional).values())

    @property
    def by_keyword(self) -> dict[str, Any]:
        return self.arguments(self.keyword_only)

    @property
    def required(self) -> list[str]:
        return [name for name in self.all_names if name not in self.optional]

    @property
    def all_names(self) -> tuple[str, ...]:
        return self.positional + self.keyword_only


def operation(name: str, call: Callable[..., object], text: str) -> Operation:
    """Reads the parameters from a signature written as in `frame.surface`."""
    parts = [part.strip() for part in text.strip("()").split(",") if part.strip()]
    names = [part.partition("=")[0] for part in parts]
    star = names.index("*") if "*" in names else len(names)
    optional = frozenset(part.partition("=")[0] for part in parts if "=" in part)
    return Operation(name, call, tuple(names[:star]), tuple(names[star + 1 :]), optional)


def operations() -> Iterator[Operation]:
    for name, text in FUNCTIONS.items():
        yield operation(name, getattr(client_manifest, name), text)
    for kind, methods in (
        (client_manifest._PosixPinnedRoot, METHODS),
        (client_manifest._WindowsHandleFileSystem, BOUNDARY_METHODS),
        (client_manifest._WindowsPinnedRoot, WINDOWS_METHODS),
    ):
        for name, text in methods.items():
            yield operation(f"{kind.__name__}.{name}", getattr(unmade(kind), name), text)
        yield operation(kind.__name__, kind, methods["__init__"])
    for record in (
        client_manifest.AcceptedDistributionSet,
        client_manifest.LoadedAcceptedDistributionSet,
        client_manifest.ContainedFileIdentity,
        client_manifest._WindowsFileRenameInformationLayout,
    ):
        text = ", ".join(field.name for field in fields(record))
        yield operation(record.__name__, record, f"({text})")
