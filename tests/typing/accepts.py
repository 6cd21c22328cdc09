"""Uses of the public names that a type checker must let through; checked, never run."""

from __future__ import annotations

import io
import os
from collections.abc import Iterator, Mapping
from pathlib import Path
from typing import Any, assert_type

from brindlefen.distribution import client_manifest
from brindlefen.distribution.client_manifest import (
    AcceptedDistributionSet,
    ContainedFileIdentity,
    LoadedAcceptedDistributionSet,
    ManifestJsonError,
    PinnedRoot,
    StrictJsonError,
)


class Place:
    """A path-like value that is no `Path`."""

    def __fspath__(self) -> str:
        return "/"


class Watched(PinnedRoot):
    """A root of one's own, with an attribute of its own."""

    reads: int = 0

    def read_regular_file(self, relative_path: str, *, label: str) -> bytes:
        self.reads += 1
        return super().read_regular_file(relative_path, label=label)


class Numbered:
    """The least that a proof of an open file asks for."""

    def fileno(self) -> int:
        return 0


class Readable(Numbered):
    """The least that a read of an open file asks for."""

    def read(self, size: int) -> bytes:
        return b""


class Seekable(Readable):
    """The least that hashing an open file asks for."""

    def seek(self, offset: int) -> int:
        return offset


def parse(payload: bytes, label: str) -> Iterator[dict[str, Any]]:
    yield assert_type(
        client_manifest.parse_strict_json_object_bytes(payload, label=label), dict[str, Any]
    )
    yield assert_type(client_manifest.parse_distribution_manifest_bytes(payload), dict[str, Any])
    yield client_manifest.parse_distribution_manifest_bytes(manifest_bytes=payload, label=label)
    yield assert_type(client_manifest.parse_canonical_signals_index_bytes(payload), dict[str, Any])
    yield client_manifest.parse_canonical_signals_index_bytes(payload=payload, label=label)


def refusals_in_their_order(payload: bytes) -> str:
    try:
        client_manifest.parse_distribution_manifest_bytes(payload)
    except ManifestJsonError as error:
        strict: StrictJsonError = error
        value: ValueError = strict
        return str(value)
    return ""


def judge(untrusted: object, manifest: dict[str, Any], payloads: Mapping[str, bytes]) -> str:
    path = assert_type(client_manifest.validate_manifest_relative_path(untrusted), str)
    declared = client_manifest.validate_signals_index_manifest_declaration(manifest)
    accepted = client_manifest.validate_accepted_distribution_set(manifest, b"{}")
    assert_type(accepted, AcceptedDistributionSet)
    client_manifest.validate_accepted_distribution_set(
        manifest=manifest, signals_index_bytes=b"{}", membership_payloads=payloads
    )
    client_manifest.validate_accepted_distribution_set(manifest, b"{}", membership_payloads=None)
    client_manifest.validate_accepted_distribution_set(manifest, b"{}", membership_payloads={})
    return path + assert_type(declared, str)


def build_records() -> LoadedAcceptedDistributionSet:
    by_place = AcceptedDistributionSet("path", {"market_id": 7}, ("a", "b"))
    by_name = AcceptedDistributionSet(
        signals_index_path="path", signals_index_document={}, membership_paths=()
    )
    LoadedAcceptedDistributionSet({}, None, b"", by_place)
    return LoadedAcceptedDistributionSet(
        manifest={}, manifest_bytes=b"", signals_index_bytes=b"", accepted=by_name
    )


def build_identities() -> bool:
    by_place = ContainedFileIdentity(1, "0" * 64, 2, 3, 4, 5)
    by_name = ContainedFileIdentity(
        size_bytes=1, sha256="0" * 64, device=2, inode=3, mtime_ns=4, ctime_ns=5
    )
    size, mtime_ns, ctime_ns, device, inode = by_place.stat_key
    assert_type((size, mtime_ns, ctime_ns, device, inode), tuple[int, int, int, int, int])
    return by_place == by_name and len({by_place, by_name}) == 1


def take_apart(identity: object) -> int:
    match identity:
        case ContainedFileIdentity(size_bytes, _, _, inode):
            return size_bytes + inode
        case _:
            return 0


def load(root: Path, manifest: dict[str, Any]) -> tuple[str, ...]:
    loaded = client_manifest.load_accepted_distribution_set(root)
    assert_type(loaded, LoadedAcceptedDistributionSet)
    assert_type(loaded.manifest, dict[str, Any])
    assert_type(loaded.manifest_bytes, bytes | None)
    assert_type(loaded.signals_index_bytes, bytes)
    assert_type(loaded.accepted, AcceptedDistributionSet)
    assert_type(loaded.signals_index_path, str)
    assert_type(loaded.signals_index_document, dict[str, Any])
    client_manifest.load_accepted_distribution_set(str(root), manifest=manifest)
    client_manifest.load_accepted_distribution_set(root=Place(), manifest=None)
    return assert_type(loaded.membership_paths, tuple[str, ...])


def use(root: PinnedRoot) -> None:
    assert_type(root.path, Path)
    assert_type(root.read_regular_file("a", label="a"), bytes)
    assert_type(root.read_regular_file_if_present("a", label="a"), bytes | None)
    assert_type(
        root.read_regular_file_with_stat("a", label="a"), tuple[bytes, os.stat_result]
    )
    assert_type(root.stat_regular_file("a", label="a"), os.stat_result)
    assert_type(root.hash_regular_file("a", label="a"), ContainedFileIdentity)
    root.hash_regular_file(relative_path="a", label="a", chunk_bytes=1)
    root.assert_root_unchanged()


def stream(root: PinnedRoot) -> bytes:
    with root.open_regular_file_for_read("a", label="a") as file:
        reader = assert_type(file, io.BufferedReader)
        identity = root.hash_open_regular_file(file, "a", label="a", chunk_bytes=1 << 16)
        assert_type(identity, ContainedFileIdentity)
        reader.seek(0)
        content = reader.read()
        root.assert_open_regular_file_identity(file, "a", label="a", identity=identity)
    root.hash_open_regular_file(Seekable(), "a", label="a")
    root.assert_open_regular_file_identity(Numbered(), "a", label="a", identity=identity)
    with open("a", "rb") as other:
        root.hash_open_regular_file(other, "a", label="a")
    with open("a", "rb", buffering=0) as unbuffered:
        root.hash_open_regular_file(unbuffered, "a", label="a")
    return content


def pin() -> None:
    with PinnedRoot("/") as root, root.open_contained_root("a", label="a") as child:
        use(assert_type(child, PinnedRoot))
    with Watched(Path("/"), create=True) as watched:
        use(watched)
        with watched.open_contained_root("a", label="a") as below:
            assert_type(below, Watched)
            below.reads += watched.reads
    PinnedRoot(root=Place()).close()


def write(root: PinnedRoot, other: PinnedRoot) -> bool:
    root.write_atomic("a", b"", allow_replace=False)
    root.write_atomic(relative_path="a", payload=b"", allow_replace=True)
    with root.open_regular_file_for_update("a", create=True) as file:
        assert_type(file, io.BufferedRandom).truncate(0)
        file.write(file.read())
    root.replace_regular_file("a", "b")
    root.replace_regular_file(source_relative_path="b", destination_relative_path="a")
    root.move_regular_file_to("a", other, "b")
    root.move_regular_file_to("a", destination_root=other, destination_relative_path="b")
    return assert_type(root.remove_regular_file("a", missing_ok=True), bool)


def work_on_trees(root: PinnedRoot, kept: frozenset[str]) -> bool:
    by_suffix = root.remove_regular_files_with_suffix(".tmp", preserve_relative_paths=kept)
    assert_type(by_suffix, tuple[str, ...])
    root.remove_regular_files_with_suffix(".tmp", preserve_relative_paths=[*kept])
    root.remove_regular_files_with_suffix(".tmp", preserve_relative_paths=(p for p in kept))
    by_prefix = root.remove_regular_files_in_prefixes(("a", "b"), preserve_relative_paths=kept)
    assert_type(by_prefix, tuple[str, ...])
    root.remove_regular_files_in_prefixes(prefixes=(), preserve_relative_paths=set())
    assert_type(root.list_directory_names(), tuple[str, ...])
    root.ensure_directory("a")
    return assert_type(root.remove_directory_tree("a", missing_ok=True), bool)


def choose_class(name: str | None) -> type[PinnedRoot]:
    kinds = [client_manifest._pinned_root_class(), client_manifest._PosixPinnedRoot]
    return kinds[0] if name == "" else client_manifest._pinned_root_class(name)
