"""Proves the load of a whole distribution from disk, and how each step of it fails."""

from __future__ import annotations

import dataclasses
import errno
import json
import os
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.distribution import (
    FIRST_FILE,
    LAST_FILE,
    MEMBERS,
    OTHER_DIGEST,
    SIGNAL_PNL,
    Distribution,
    build_distribution,
    empty_distribution,
    index_document,
    sha256_of,
)
from support.failures import fails_with

LEGACY = "legacy signals_index.json sidecar is not supported"
CHUNK = 1_048_576


def load(root: Any, **keywords: Any) -> Any:
    return client_manifest.load_accepted_distribution_set(root, **keywords)


def test_a_valid_distribution_loads(valid: Distribution, tmp_path: Path) -> None:
    loaded = load(valid.write(tmp_path))
    assert type(loaded) is client_manifest.LoadedAcceptedDistributionSet
    assert loaded.manifest == valid.manifest
    assert loaded.manifest_bytes == valid.manifest_bytes()
    assert loaded.signals_index_bytes == valid.sidecar
    assert loaded.accepted == client_manifest.AcceptedDistributionSet(
        valid.reference, valid.document, MEMBERS
    )


def test_the_record_delegates_to_its_accepted_set(valid: Distribution, tmp_path: Path) -> None:
    loaded = load(valid.write(tmp_path))
    for name in ("signals_index_path", "signals_index_document", "membership_paths"):
        assert getattr(loaded, name) is getattr(loaded.accepted, name)
        found = vars(client_manifest.LoadedAcceptedDistributionSet)[name]
        assert isinstance(found, property)
        assert found.fset is None


def test_the_record_is_frozen_and_compares_by_value(valid: Distribution, tmp_path: Path) -> None:
    loaded = load(valid.write(tmp_path))
    assert loaded == load(tmp_path)
    fields = [field.name for field in dataclasses.fields(loaded)]
    assert fields == ["manifest", "manifest_bytes", "signals_index_bytes", "accepted"]
    for name in [*fields, "membership_paths"]:
        with pytest.raises(dataclasses.FrozenInstanceError):
            setattr(loaded, name, None)


def test_a_distribution_without_members_loads(tmp_path: Path) -> None:
    assert load(empty_distribution().write(tmp_path)).membership_paths == ()


@pytest.mark.parametrize("size", [0, 1, CHUNK - 1, CHUNK, CHUNK + 1, 3 * CHUNK + 7])
def test_members_of_any_size_load(tmp_path: Path, size: int) -> None:
    payload = bytes(range(251)) * (size // 251 + 1)
    document = index_document(useful_signals={"a": {"files": ["deep/er/file"]}})
    distribution = build_distribution(document, {"deep/er/file": payload[:size]}, {})
    assert load(distribution.write(tmp_path)).membership_paths == ("deep/er/file",)


def test_the_root_may_be_text_a_path_or_relative(
    valid: Distribution, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    valid.write(tmp_path / "root")
    monkeypatch.chdir(tmp_path)
    expected = load(tmp_path / "root")
    assert load(str(tmp_path / "root")) == expected
    assert load("root") == expected
    assert load(Path("absent/../root/.")) == expected


def test_nothing_on_disk_is_changed(valid: Distribution, tmp_path: Path) -> None:
    valid.write(tmp_path)
    before = {path: os.lstat(path) for path in [tmp_path, *tmp_path.rglob("*")]}
    load(tmp_path)
    after = {path: os.lstat(path) for path in [tmp_path, *tmp_path.rglob("*")]}
    assert {path: (found.st_mtime_ns, found.st_ctime_ns) for path, found in before.items()} == {
        path: (found.st_mtime_ns, found.st_ctime_ns) for path, found in after.items()
    }


def test_files_outside_the_memberships_are_no_concern(valid: Distribution, tmp_path: Path) -> None:
    valid.write(tmp_path)
    (tmp_path / "stray").write_bytes(b"")
    (tmp_path / "dangling").symlink_to("absent")
    (tmp_path / "_control/signals_index.json").write_bytes(b"")
    assert load(tmp_path).membership_paths == MEMBERS


@pytest.mark.parametrize("on_disk", [None, b"corrupt \xff"])
def test_a_supplied_manifest_is_used_instead_of_the_file(
    valid: Distribution, tmp_path: Path, on_disk: bytes | None
) -> None:
    valid.write(tmp_path)
    (tmp_path / "manifest.json").unlink()
    if on_disk is not None:
        (tmp_path / "manifest.json").write_bytes(on_disk)
    loaded = load(tmp_path, manifest=valid.manifest)
    assert loaded.manifest is valid.manifest
    assert loaded.manifest_bytes is None
    assert loaded.signals_index_bytes == valid.sidecar


def test_a_supplied_manifest_may_be_of_a_class_of_the_caller(
    valid: Distribution, tmp_path: Path
) -> None:
    class Manifest(dict[str, Any]):
        pass

    manifest = Manifest(valid.manifest)
    assert load(valid.write(tmp_path), manifest=manifest).manifest is manifest


def test_an_empty_supplied_manifest_is_a_manifest(valid: Distribution, tmp_path: Path) -> None:
    with fails_with(ValueError, "manifest signals_index is required"):
        load(valid.write(tmp_path), manifest={})


@pytest.mark.parametrize("manifest", [[], (), "{}", b"{}", 0, False])
def test_a_supplied_manifest_must_be_a_dict(
    valid: Distribution, tmp_path: Path, manifest: Any
) -> None:
    with fails_with(TypeError, "manifest must be a dict") as caught:
        load(valid.write(tmp_path), manifest=manifest)
    assert caught.error.__context__ is None


def test_the_manifest_parameter_is_a_keyword(valid: Distribution, tmp_path: Path) -> None:
    with pytest.raises(TypeError):
        client_manifest.load_accepted_distribution_set(  # type: ignore[call-arg]
            valid.write(tmp_path), valid.manifest
        )


def test_a_missing_root_keeps_the_failure_of_the_system(tmp_path: Path) -> None:
    with fails_with(FileNotFoundError, None) as caught:
        load(tmp_path / "absent")
    assert isinstance(caught.error, OSError)
    assert caught.error.errno == errno.ENOENT


def test_a_missing_manifest_is_named(tmp_path: Path) -> None:
    with fails_with(
        FileNotFoundError, "manifest.json is missing: manifest.json", cause=FileNotFoundError
    ):
        load(tmp_path)


@pytest.mark.parametrize(
    ("payload", "message"),
    [
        (b"", "manifest.json is not valid JSON"),
        (b"\xff", "manifest.json is not valid UTF-8"),
        (b"[]", "manifest.json must contain a JSON object"),
        (b'{"a":1,"a":2}', "manifest.json contains duplicate object key: a"),
        (b'{"a":-Infinity}', "non-finite JSON constant is forbidden: -Infinity"),
    ],
)
def test_a_bad_manifest_is_a_manifest_failure(
    tmp_path: Path, payload: bytes, message: str
) -> None:
    (tmp_path / "manifest.json").write_bytes(payload)
    with fails_with(
        client_manifest.ManifestJsonError, message, cause=client_manifest.StrictJsonError
    ):
        load(tmp_path)


@pytest.mark.parametrize("content", [b"", b"{}"])
@pytest.mark.parametrize("supplied", [False, True])
def test_the_retired_sidecar_is_refused_by_presence(
    valid: Distribution, tmp_path: Path, content: bytes, supplied: bool
) -> None:
    (valid.write(tmp_path) / "signals_index.json").write_bytes(content)
    with fails_with(ValueError, LEGACY) as caught:
        load(tmp_path, manifest=valid.manifest if supplied else None)
    assert caught.error.__context__ is None


def test_a_faulty_declaration_fails_the_load(valid: Distribution, tmp_path: Path) -> None:
    valid.sidecar_entry["size_bytes"] = True
    with fails_with(
        ValueError, f'manifest files["{valid.reference}"].size_bytes must be an integer'
    ):
        load(valid.write(tmp_path))


def test_a_missing_sidecar_is_named(valid: Distribution, tmp_path: Path) -> None:
    (valid.write(tmp_path) / valid.reference).unlink()
    message = f"signals_index sidecar is missing: {valid.reference}"
    with fails_with(FileNotFoundError, message, cause=FileNotFoundError):
        load(tmp_path)
    (tmp_path / "_control").rmdir()
    with fails_with(FileNotFoundError, message, cause=FileNotFoundError) as caught:
        load(tmp_path)
    assert str(caught.error.__cause__) == (
        f"signals_index sidecar has a missing parent: {valid.reference}"
    )


def test_an_altered_sidecar_is_refused(valid: Distribution, tmp_path: Path) -> None:
    altered = valid.sidecar.replace(b"1.5", b"1.6")
    (valid.write(tmp_path) / valid.reference).write_bytes(altered)
    with fails_with(
        ValueError,
        f"manifest advertises signals_index sidecar sha256 {sha256_of(valid.sidecar)}, "
        f"but {valid.reference} is {sha256_of(altered)}",
    ):
        load(tmp_path)


def test_a_sidecar_that_is_no_strict_document_is_no_manifest_failure(
    valid: Distribution, tmp_path: Path
) -> None:
    valid.declare_sidecar(b"{")
    with fails_with(
        client_manifest.StrictJsonError,
        f"{valid.reference} is not valid JSON",
        cause=json.JSONDecodeError,
    ):
        load(valid.write(tmp_path))


def test_an_invalid_set_fails_the_load(valid: Distribution, tmp_path: Path) -> None:
    valid.manifest["market_id"] += 1
    with fails_with(
        ValueError, "signals_index sidecar market_id must match manifest market_id"
    ):
        load(valid.write(tmp_path))


@pytest.mark.parametrize("path", MEMBERS)
def test_a_missing_member_keeps_the_failure_of_the_system(
    valid: Distribution, tmp_path: Path, path: str
) -> None:
    (valid.write(tmp_path) / path).unlink()
    with fails_with(FileNotFoundError, None) as caught:
        load(tmp_path)
    assert isinstance(caught.error, OSError)
    assert caught.error.errno == errno.ENOENT


def test_a_missing_parent_of_a_member_is_named(valid: Distribution, tmp_path: Path) -> None:
    valid.write(tmp_path)
    (tmp_path / LAST_FILE).unlink()
    (tmp_path / LAST_FILE).parent.rmdir()
    with fails_with(
        FileNotFoundError,
        f"membership file has a missing parent: {LAST_FILE}",
        cause=FileNotFoundError,
    ):
        load(tmp_path)


@pytest.mark.parametrize("path", sorted(set(MEMBERS) - {FIRST_FILE}))
@pytest.mark.parametrize("position", [0, -1])
def test_one_flipped_bit_in_a_member_is_found(
    valid: Distribution, tmp_path: Path, path: str, position: int
) -> None:
    altered = bytearray(valid.payloads[path])
    altered[position] ^= 1
    (valid.write(tmp_path) / path).write_bytes(altered)
    with fails_with(
        ValueError,
        f"manifest advertises membership file sha256 {sha256_of(valid.payloads[path])}, "
        f"but {path} is {sha256_of(altered)}",
    ) as caught:
        load(tmp_path)
    assert caught.error.__context__ is None


@pytest.mark.parametrize("path", MEMBERS)
def test_a_grown_member_is_found(valid: Distribution, tmp_path: Path, path: str) -> None:
    size = len(valid.payloads[path])
    (valid.write(tmp_path) / path).write_bytes(valid.payloads[path] + b"!")
    with fails_with(
        ValueError,
        f"manifest advertises membership file size {size}, but {path} is {size + 1} bytes",
    ):
        load(tmp_path)


def test_a_manifest_that_advertises_another_digest_is_found(
    valid: Distribution, tmp_path: Path
) -> None:
    valid.files[SIGNAL_PNL]["sha256"] = OTHER_DIGEST
    with fails_with(
        ValueError,
        f"manifest advertises membership file sha256 {OTHER_DIGEST}, "
        f"but {SIGNAL_PNL} is {sha256_of(valid.payloads[SIGNAL_PNL])}",
    ):
        load(valid.write(tmp_path))
