"""Uses of the functions on paths that a type checker must let through; checked, never run."""

from __future__ import annotations

import os
from collections.abc import Iterator
from pathlib import Path
from typing import Literal, assert_type

from brindlefen.distribution import client_manifest
from brindlefen.distribution.client_manifest import ContainedFileIdentity


class Place:
    """A path-like value that is no `Path`."""

    def __fspath__(self) -> str:
        return "/"


def act_once(root: Path) -> Iterator[object]:
    yield assert_type(client_manifest.read_contained_regular_file(root, "a", label="a"), bytes)
    yield assert_type(
        client_manifest.read_contained_regular_file_if_present(Place(), "a", label="a"),
        bytes | None,
    )
    yield assert_type(
        client_manifest.stat_contained_regular_file("/", "a", label="a"), os.stat_result
    )
    identity = client_manifest.identify_contained_regular_file(root, "a", label="a")
    yield assert_type(identity, ContainedFileIdentity)
    yield client_manifest.identify_contained_regular_file(root, "a", label="a", chunk_bytes=1)
    yield assert_type(client_manifest.hash_contained_regular_file(root, "a", label="a"), str)
    yield client_manifest.hash_contained_regular_file(root, "a", label="a", chunk_bytes=1)


def change_once(root: Path) -> Iterator[object]:
    yield assert_type(client_manifest.write_contained_regular_file(root, "a", b""), str)
    yield client_manifest.write_contained_regular_file("/", "a", b"", allow_replace=False)
    yield assert_type(client_manifest.remove_contained_regular_file(root, "a"), bool)
    yield client_manifest.remove_contained_regular_file(root, "a", missing_ok=False)
    yield assert_type(
        client_manifest.cleanup_contained_regular_files(
            root, suffix=".tmp", preserve_relative_paths={"a"}
        ),
        tuple[str, ...],
    )
    yield assert_type(
        client_manifest.cleanup_contained_regular_files_in_prefixes(
            root, prefixes=("a",), preserve_relative_paths=()
        ),
        tuple[str, ...],
    )
    yield assert_type(client_manifest.ensure_contained_directory(Place(), "a"), str)
    yield assert_type(client_manifest.remove_contained_directory_tree(root, "a"), bool)
    yield client_manifest.remove_contained_directory_tree(root, "a", missing_ok=False)


def carry(root: Path) -> Literal["linked", "copied"]:
    client_manifest.move_contained_regular_file(root, "a", "/", "b")
    client_manifest.copy_contained_regular_file(Place(), "a", root, "b")
    return assert_type(
        client_manifest.link_or_copy_contained_regular_file(
            source_root=root,
            source_relative_path="a",
            destination_root=Place(),
            destination_relative_path="b",
        ),
        Literal["linked", "copied"],
    )


def by_whole_path(path: Path) -> str:
    content = assert_type(client_manifest.read_regular_file_path(path, label="a"), bytes)
    client_manifest.write_regular_file_path("/a", content, allow_replace=False)
    client_manifest.hash_regular_file_path(Place(), label="a", chunk_bytes=1)
    assert_type(client_manifest.hash_regular_file_path(path, label="a"), str)
    return assert_type(client_manifest.write_regular_file_path(path, content), str)


def look_for_metadata(path: Path, untrusted: object) -> dict[str, int]:
    number = assert_type(client_manifest.positive_manifest_int(untrusted), int | None)
    client_manifest.local_client_manifest_metadata(None)
    client_manifest.local_client_manifest_metadata(path, market_id="7", era_number=number)
    client_manifest.local_client_manifest_metadata(data_dir=Place(), era_number=untrusted)
    found = assert_type(client_manifest.local_client_manifest_metadata("/"), dict[str, int])
    return found or assert_type(client_manifest.manifest_metadata_from_path(path), dict[str, int])
