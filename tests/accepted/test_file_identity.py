"""Proves the frozen record of one hashed file, and that its stat key is the one of its stat."""

from __future__ import annotations

import dataclasses
import os
from pathlib import Path
from typing import Any

import pytest
from hypothesis import given
from hypothesis import strategies as st

from brindlefen.distribution import client_manifest
from support.distribution import sha256_of

FIELDS = ("size_bytes", "sha256", "device", "inode", "mtime_ns", "ctime_ns")
VALUES: tuple[Any, ...] = (1, "d" * 64, 2, 3, 4, 5)


def test_the_fields_stand_in_the_agreed_order() -> None:
    fields = dataclasses.fields(client_manifest.ContainedFileIdentity)
    assert tuple(field.name for field in fields) == FIELDS


def test_positions_and_keywords_build_the_same_record() -> None:
    by_position = client_manifest.ContainedFileIdentity(*VALUES)
    by_keyword = client_manifest.ContainedFileIdentity(**dict(zip(FIELDS, VALUES, strict=True)))
    assert by_position == by_keyword
    assert hash(by_position) == hash(by_keyword)
    assert repr(by_position) == repr(by_keyword)
    assert tuple(getattr(by_position, name) for name in FIELDS) == VALUES


@pytest.mark.parametrize("missing", range(len(FIELDS)))
def test_no_field_has_a_default(missing: int) -> None:
    given_fields = dict(zip(FIELDS, VALUES, strict=True))
    del given_fields[FIELDS[missing]]
    with pytest.raises(TypeError, match=FIELDS[missing]):
        client_manifest.ContainedFileIdentity(**given_fields)


@pytest.mark.parametrize("changed", range(len(FIELDS)))
def test_records_differ_when_one_field_differs(changed: int) -> None:
    values = list(VALUES)
    values[changed] = "other"
    assert client_manifest.ContainedFileIdentity(
        *values
    ) != client_manifest.ContainedFileIdentity(*VALUES)


@pytest.mark.parametrize("name", [*FIELDS, "stat_key", "unknown"])
def test_nothing_can_be_assigned_or_deleted(name: str) -> None:
    identity = client_manifest.ContainedFileIdentity(*VALUES)
    with pytest.raises(dataclasses.FrozenInstanceError):
        setattr(identity, name, 9)
    with pytest.raises(dataclasses.FrozenInstanceError):
        delattr(identity, name)


def test_the_stat_key_has_its_own_order() -> None:
    assert client_manifest.ContainedFileIdentity(*VALUES).stat_key == (1, 4, 5, 2, 3)


def test_the_stat_key_is_a_read_only_property() -> None:
    found = vars(client_manifest.ContainedFileIdentity)["stat_key"]
    assert isinstance(found, property)
    assert found.fset is None
    assert found.fdel is None


def test_the_documentation_is_the_agreed_text() -> None:
    assert client_manifest.ContainedFileIdentity.__doc__ == (
        "One stable descriptor-pinned regular-file identity and content hash."
    )


def test_a_hashed_file_has_the_stat_key_of_its_stat_result(tmp_path: Path) -> None:
    (tmp_path / "file").write_bytes(b"content")
    with client_manifest.PinnedRoot(tmp_path) as root:
        identity = root.hash_regular_file("file", label="file")
    found = os.stat(tmp_path / "file")
    assert identity.stat_key == client_manifest._regular_file_stat_key(found)
    assert identity == client_manifest.ContainedFileIdentity(
        size_bytes=7,
        sha256=sha256_of(b"content"),
        device=found.st_dev,
        inode=found.st_ino,
        mtime_ns=found.st_mtime_ns,
        ctime_ns=found.st_ctime_ns,
    )


@given(st.tuples(*[st.integers()] * 5))
def test_the_stat_key_holds_the_fields_as_given(values: tuple[int, ...]) -> None:
    size, modified, changed, device, inode = values
    identity = client_manifest.ContainedFileIdentity(size, "", device, inode, modified, changed)
    assert identity.stat_key == values
