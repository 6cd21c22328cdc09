"""Misuses of the functions on paths that a type checker must catch; checked, never run.

Each comment names the error of its line. A line that is no longer an error leaves its comment
unused, which fails the check.
"""

from __future__ import annotations

from brindlefen.distribution import client_manifest
from brindlefen.distribution.client_manifest import PinnedRoot


def one_shots(payload: memoryview) -> None:
    client_manifest.read_contained_regular_file("/", "a")  # type: ignore[call-arg]
    client_manifest.read_contained_regular_file(b"/", "a", label="a")  # type: ignore[arg-type]
    client_manifest.stat_contained_regular_file("/", "a", "label")  # type: ignore[call-arg]
    client_manifest.hash_contained_regular_file(
        "/",
        "a",
        label="a",
        chunk_bytes="1",  # type: ignore[arg-type]
    )
    client_manifest.write_contained_regular_file("/", "a")  # type: ignore[call-arg]
    client_manifest.write_contained_regular_file("/", "a", payload)  # type: ignore[arg-type]
    client_manifest.write_contained_regular_file("/", "a", b"", True)  # type: ignore[call-arg]
    client_manifest.remove_contained_regular_file("/", "a", True)  # type: ignore[call-arg]
    client_manifest.cleanup_contained_regular_files("/", ".tmp")  # type: ignore[call-arg]
    client_manifest.cleanup_contained_regular_files("/", suffix=".tmp")  # type: ignore[call-arg]
    client_manifest.cleanup_contained_regular_files_in_prefixes(  # type: ignore[call-arg]
        "/", ("a",), ()
    )
    client_manifest.ensure_contained_directory("/", None)  # type: ignore[arg-type]
    client_manifest.remove_contained_directory_tree("/", missing_ok=True)  # type: ignore[call-arg]
    client_manifest.copy_contained_regular_file("/", "a", "/")  # type: ignore[call-arg]
    client_manifest.move_contained_regular_file("/", "a", 3, "b")  # type: ignore[arg-type]
    carried = client_manifest.link_or_copy_contained_regular_file("/", "a", "/", "b")
    carried == "moved"  # type: ignore[comparison-overlap]


def whole_paths_and_metadata(root: PinnedRoot) -> None:
    client_manifest.read_regular_file_path("/a")  # type: ignore[call-arg]
    client_manifest.read_regular_file_path(root, label="a")  # type: ignore[arg-type]
    client_manifest.write_regular_file_path("/a", "text")  # type: ignore[arg-type]
    client_manifest.hash_regular_file_path(
        "/a",
        label="a",
        chunk_bytes=None,  # type: ignore[arg-type]
    )
    client_manifest.positive_manifest_int()  # type: ignore[call-arg]
    client_manifest.positive_manifest_int("3") + 1  # type: ignore[operator]
    client_manifest.manifest_metadata_from_path(None)  # type: ignore[arg-type]
    client_manifest.local_client_manifest_metadata()  # type: ignore[call-arg]
    client_manifest.local_client_manifest_metadata("/", 5)  # type: ignore[call-arg]
    client_manifest.local_client_manifest_metadata(5)  # type: ignore[arg-type]
