"""Misuses that a type checker must catch; checked, never run.

Each comment names the error of its line. A line that is no longer an error leaves its comment
unused, which fails the check.
"""

from __future__ import annotations

import io
import os
from typing import Any

from brindlefen.distribution import client_manifest
from brindlefen.distribution.client_manifest import (
    AcceptedDistributionSet,
    ContainedFileIdentity,
    LoadedAcceptedDistributionSet,
    PinnedRoot,
)


class Numbered:
    """Has a descriptor, but cannot be read."""

    def fileno(self) -> int:
        return 0


def documents(payload: bytearray, view: memoryview, manifest: dict[str, Any]) -> None:
    client_manifest.parse_strict_json_object_bytes(b"{}")  # type: ignore[call-arg]
    client_manifest.parse_strict_json_object_bytes(b"{}", "label")  # type: ignore[call-arg]
    client_manifest.parse_strict_json_object_bytes("{}", label="x")  # type: ignore[arg-type]
    client_manifest.parse_strict_json_object_bytes(payload, label="x")  # type: ignore[arg-type]
    client_manifest.parse_distribution_manifest_bytes(view)  # type: ignore[arg-type]
    client_manifest.parse_distribution_manifest_bytes(payload=b"{}")  # type: ignore[call-arg]
    client_manifest.parse_canonical_signals_index_bytes(b"{}", label=None)  # type: ignore[arg-type]
    client_manifest.validate_manifest_relative_path()  # type: ignore[call-arg]
    client_manifest.validate_signals_index_manifest_declaration([])  # type: ignore[arg-type]
    client_manifest.validate_accepted_distribution_set(manifest)  # type: ignore[call-arg]
    client_manifest.validate_accepted_distribution_set(manifest, None)  # type: ignore[arg-type]
    client_manifest.validate_accepted_distribution_set(manifest, b"", {})  # type: ignore[call-arg]
    client_manifest.validate_accepted_distribution_set(
        manifest,
        b"",
        membership_payloads={"a": "text"},  # type: ignore[dict-item]
    )


def loading(manifest: dict[str, Any]) -> None:
    client_manifest.load_accepted_distribution_set()  # type: ignore[call-arg]
    client_manifest.load_accepted_distribution_set(b"/")  # type: ignore[arg-type]
    client_manifest.load_accepted_distribution_set("/", manifest)  # type: ignore[call-arg]
    client_manifest.load_accepted_distribution_set("/", manifest=b"{}")  # type: ignore[arg-type]
    loaded = client_manifest.load_accepted_distribution_set("/")
    len(loaded.manifest_bytes)  # type: ignore[arg-type]
    loaded.membership_paths.append("a")  # type: ignore[attr-defined]


def records(accepted: AcceptedDistributionSet, loaded: LoadedAcceptedDistributionSet) -> None:
    ContainedFileIdentity(1, "0" * 64, 2, 3, 4)  # type: ignore[call-arg]
    ContainedFileIdentity(1, b"0" * 64, 2, 3, 4, 5)  # type: ignore[arg-type]
    AcceptedDistributionSet("path", {}, ["a"])  # type: ignore[arg-type]
    LoadedAcceptedDistributionSet({}, None, None, accepted)  # type: ignore[arg-type]
    LoadedAcceptedDistributionSet(manifest={}, accepted=accepted)  # type: ignore[call-arg]
    accepted.signals_index_path = "other"  # type: ignore[misc]
    loaded.accepted = accepted  # type: ignore[misc]
    loaded.signals_index_path = "other"  # type: ignore[misc]
    identity = ContainedFileIdentity(1, "0" * 64, 2, 3, 4, 5)
    identity.size_bytes = 2  # type: ignore[misc]
    identity.stat_key = (1, 2, 3, 4, 5)  # type: ignore[misc]
    identity.stat_key()  # type: ignore[operator]
    identity < identity  # type: ignore[operator]


def roots(root: PinnedRoot, file: io.BufferedReader, text: io.TextIOWrapper) -> None:
    PinnedRoot()  # type: ignore[call-arg]
    PinnedRoot("/", True)  # type: ignore[call-arg]
    PinnedRoot(b"/")  # type: ignore[arg-type]
    PinnedRoot(3)  # type: ignore[arg-type]
    root.read_regular_file("a")  # type: ignore[call-arg]
    root.read_regular_file("a", "label")  # type: ignore[call-arg]
    root.read_regular_file(root.path, label="a")  # type: ignore[arg-type]
    root.read_regular_file(b"a", label="a")  # type: ignore[arg-type]
    root.hash_regular_file("a", label="a", chunk_bytes=1.0)  # type: ignore[arg-type]
    root.hash_regular_file("a", label="a", chunk_bytes=None)  # type: ignore[arg-type]
    root.hash_open_regular_file(text, "a", label="a")  # type: ignore[arg-type]
    root.hash_open_regular_file(file.fileno(), "a", label="a")  # type: ignore[arg-type]
    root.hash_open_regular_file(Numbered(), "a", label="a")  # type: ignore[arg-type]
    root.assert_open_regular_file_identity(file, "a", label="a")  # type: ignore[call-arg]
    root.open_contained_root("a")  # type: ignore[call-arg]
    root.stat_regular_file("a", label="a").size_bytes  # type: ignore[attr-defined]
    root.fileno()  # type: ignore[attr-defined]
    os.close(root._descriptor)  # type: ignore[arg-type]
    len(root.read_regular_file_if_present("a", label="a"))  # type: ignore[arg-type]


def writes(root: PinnedRoot, payload: bytearray) -> None:
    root.write_atomic("a", b"")  # type: ignore[call-arg]
    root.write_atomic("a", b"", True)  # type: ignore[call-arg]
    root.write_atomic("a", payload, allow_replace=True)  # type: ignore[arg-type]
    root.write_atomic("a", "text", allow_replace=True)  # type: ignore[arg-type]
    root.write_atomic(b"a", b"", allow_replace=True)  # type: ignore[arg-type]
    done = root.write_atomic("a", b"", allow_replace=True)  # type: ignore[func-returns-value]
    assert done is None
    root.open_regular_file_for_update("a")  # type: ignore[call-arg]
    root.open_regular_file_for_update("a", True)  # type: ignore[call-arg]
    root.open_regular_file_for_update("a", create=None)  # type: ignore[arg-type]
    root.open_regular_file_for_update("a", create=True).write("text")  # type: ignore[arg-type]
    root.remove_regular_file("a")  # type: ignore[call-arg]
    root.remove_regular_file("a", True)  # type: ignore[call-arg]
    root.replace_regular_file("a")  # type: ignore[call-arg]
    root.replace_regular_file("a", root.path)  # type: ignore[arg-type]
    root.move_regular_file_to("a", "/", "b")  # type: ignore[arg-type]
    root.move_regular_file_to("a", root)  # type: ignore[call-arg]


def trees(root: PinnedRoot) -> None:
    root.remove_regular_files_with_suffix(".tmp")  # type: ignore[call-arg]
    root.remove_regular_files_with_suffix(".tmp", {"a"})  # type: ignore[call-arg]
    root.remove_regular_files_with_suffix(
        b".tmp",  # type: ignore[arg-type]
        preserve_relative_paths=(),
    )
    root.remove_regular_files_with_suffix(
        ".tmp",
        preserve_relative_paths=None,  # type: ignore[arg-type]
    )
    # Text alone would count as many prefixes of one character.
    root.remove_regular_files_in_prefixes("a", preserve_relative_paths=())  # type: ignore[arg-type]
    root.remove_regular_files_in_prefixes(
        ["a"],  # type: ignore[arg-type]
        preserve_relative_paths=(),
    )
    root.remove_regular_files_in_prefixes(
        ("a",),
        preserve_relative_paths={b"a"},  # type: ignore[arg-type]
    )
    root.list_directory_names().sort()  # type: ignore[attr-defined]
    root.ensure_directory(root.path)  # type: ignore[arg-type]
    root.remove_directory_tree("a")  # type: ignore[call-arg]


def constants() -> None:
    client_manifest._LEGACY_SIGNALS_INDEX_PATH = "other"  # type: ignore[misc]
    client_manifest._SIGNALS_INDEX_SECTIONS[3]  # type: ignore[misc]
    client_manifest.NoSuchName  # type: ignore[attr-defined]
