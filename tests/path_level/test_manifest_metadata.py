"""Proves what is reported of one manifest: all three numbers, nothing at all, or a failure."""

from __future__ import annotations

import json
from itertools import product
from pathlib import Path
from typing import Any

import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

from brindlefen.distribution import client_manifest
from brindlefen.distribution.client_manifest import ManifestJsonError, StrictJsonError
from support.failures import fails_with
from support.naming import named

metadata_of = client_manifest.manifest_metadata_from_path

KEYS = ("version", "market_id", "era_number")
NUMBERS = {"version": 3, "market_id": 5, "era_number": 9}
RECORD = {
    "client_manifest_version": 3,
    "client_manifest_market_id": 5,
    "client_manifest_era_number": 9,
}


@pytest.fixture
def path(tmp_path: Path) -> Path:
    return tmp_path / "manifest.json"


def write(path: Path, document: Any) -> Path:
    path.write_text(json.dumps(document))
    return path


def test_the_full_record_has_three_keys_in_a_fixed_order(path: Path) -> None:
    found = metadata_of(write(path, {**dict(reversed(NUMBERS.items())), "files": {}}))
    assert type(found) is dict
    assert list(found.items()) == list(RECORD.items())


def test_numbers_in_other_forms_are_read_leniently(path: Path) -> None:
    document = {"version": "3", "market_id": 5.9, "era_number": " 9 "}
    assert metadata_of(write(path, document)) == RECORD


@pytest.mark.parametrize("key", KEYS)
@pytest.mark.parametrize("value", [0, -1, 0.5, True, False, None, "", "x", "3.5", [], [1], {}])
def test_one_number_that_does_not_count_leaves_nothing(key: str, value: Any, path: Path) -> None:
    found = metadata_of(write(path, {**NUMBERS, key: value}))
    assert (found, type(found)) == ({}, dict)


def test_a_missing_number_leaves_nothing(path: Path) -> None:
    for present in product([False, True], repeat=3):
        document = {key: NUMBERS[key] for key, is_present in zip(KEYS, present) if is_present}
        assert metadata_of(write(path, document)) == (RECORD if all(present) else {})


def test_an_empty_record_is_a_mapping_of_its_own(path: Path) -> None:
    write(path, {})
    for found in (metadata_of(path), metadata_of(path.with_name("absent"))):
        found["client_manifest_version"] = 1
    assert metadata_of(path) == metadata_of(path.with_name("absent")) == {}


@pytest.mark.parametrize("below", ["absent", "absent/manifest.json", "absent/below/x"])
def test_absence_leaves_nothing(below: str, tmp_path: Path) -> None:
    assert metadata_of(tmp_path / below) == {}


@pytest.mark.parametrize(
    ("content", "text"),
    [
        (b"", "{label} is not valid JSON"),
        (b"{", "{label} is not valid JSON"),
        (b"\xff", "{label} is not valid UTF-8"),
        (b"[]", "{label} must contain a JSON object"),
        (b'{"version": 1, "version": 1}', "{label} contains duplicate object key: version"),
        (b'{"version": NaN}', "non-finite JSON constant is forbidden: NaN"),
    ],
    ids=named,
)
def test_what_is_no_manifest_is_told_with_the_path(content: bytes, text: str, path: Path) -> None:
    path.write_bytes(content)
    text = text.replace("{label}", str(path))
    with fails_with(ManifestJsonError, text, cause=StrictJsonError):
        metadata_of(path)


def test_the_label_is_the_path_as_it_was_given(
    tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.chdir(tmp_path)
    (tmp_path / "manifest.json").write_bytes(b"[]")
    for spelling in ("manifest.json", "./manifest.json", "x/..//manifest.json"):
        text = f"{spelling} must contain a JSON object"
        with fails_with(ManifestJsonError, text, cause=StrictJsonError):
            metadata_of(spelling)
    (tmp_path / "directory").mkdir()
    with fails_with(ValueError, "./directory must be a regular file: directory"):
        metadata_of("./directory")


def test_an_infinite_number_passes_as_a_failure(path: Path) -> None:
    for key in KEYS:
        content = json.dumps({**NUMBERS, key: "infinite"}).replace('"infinite"', "1e999")
        path.write_text(content)
        with fails_with(OverflowError, None):
            metadata_of(path)


def test_a_leaf_that_cannot_be_is_no_absence(tmp_path: Path) -> None:
    text = "manifest relative path must be an exact relative POSIX path"
    with fails_with(ValueError, text):
        metadata_of(tmp_path / "absent" / "manifest.json ")


numbers = st.one_of(
    st.none(), st.booleans(), st.integers(-3, 10**30), st.floats(-2, 9), st.text(max_size=3)
)


@settings(max_examples=50)
@given(st.fixed_dictionaries({}, optional={key: numbers for key in KEYS}))
def test_every_manifest_gives_all_numbers_or_none(tmp_path: Path, document: Any) -> None:
    path = write(tmp_path / "manifest.json", document)
    found = [client_manifest.positive_manifest_int(document.get(key)) for key in KEYS]
    expected = {} if None in found else dict(zip(RECORD, found))
    assert metadata_of(path) == expected
