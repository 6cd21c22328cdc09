"""Proves that a manifest must declare one sidecar, and the words for each way to fail that."""

from __future__ import annotations

import re
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.distribution import (
    NOT_A_DIGEST,
    OTHER_DIGEST,
    Distribution,
    file_entry,
)
from support.failures import fails_with

LEGACY = "legacy signals_index.json sidecar is not supported"
EXACT_PATH = "manifest relative path must be an exact relative POSIX path"
SEGMENTS = "manifest relative path must not contain empty, dot, or parent segments"
NOT_TEXT = "manifest relative path must be a string"
FORM = "manifest signals_index must reference _control/signals_index.<sha256>.json"
NO_FILES = "manifest files must contain the signals_index entry"
NOT_SOLE = "manifest must declare exactly one signals_index file entry"
OTHER_PATH = f"_control/signals_index.{OTHER_DIGEST}.json"


def validate(manifest: Any) -> Any:
    return client_manifest.validate_signals_index_manifest_declaration(manifest)


def of_sidecar(valid: Distribution, field: str, rule: str) -> str:
    return f'manifest files["{valid.reference}"].{field} must be {rule}'


def test_the_declared_path_is_returned(valid: Distribution) -> None:
    assert validate(valid.manifest) is valid.manifest["signals_index"]


def test_the_manifest_is_left_as_it_was(valid: Distribution) -> None:
    before = valid.copy()
    validate(valid.manifest)
    assert valid == before
    assert list(valid.files) == list(before.files)


def test_nothing_but_the_declaration_is_looked_at(valid: Distribution) -> None:
    manifest = {"files": {valid.reference: valid.sidecar_entry}, "signals_index": valid.reference}
    assert validate(manifest) == valid.reference


@pytest.mark.parametrize("manifest", [None, [], (), "manifest", b"{}", 5])
def test_a_manifest_must_be_a_dict(manifest: Any) -> None:
    with fails_with(TypeError, "manifest must be a dict") as caught:
        validate(manifest)
    assert caught.error.__context__ is None


@pytest.mark.parametrize("manifest", [{}, {"signals_index": None}, {"files": {}}])
def test_a_reference_is_required(manifest: dict[str, Any]) -> None:
    with fails_with(ValueError, "manifest signals_index is required") as caught:
        validate(manifest)
    assert caught.error.__context__ is None


def test_the_retired_path_is_refused_as_the_reference(valid: Distribution) -> None:
    valid.manifest["signals_index"] = "signals_index.json"
    with fails_with(ValueError, LEGACY):
        validate(valid.manifest)


@pytest.mark.parametrize(
    ("sections", "names"),
    [
        (["found_signals"], "found_signals"),
        (["useful_signals"], "useful_signals"),
        (["useful_signals", "found_signals"], "found_signals, useful_signals"),
        (
            ["useful_signals", "found_strategies", "found_signals"],
            "found_signals, found_strategies, useful_signals",
        ),
    ],
)
@pytest.mark.parametrize("value", [None, {}, [], False])
def test_inline_sections_are_refused_by_presence(
    valid: Distribution, sections: list[str], names: str, value: Any
) -> None:
    valid.manifest.update(dict.fromkeys(sections, value))
    with fails_with(
        ValueError, f"manifest contains legacy inline signals_index membership: {names}"
    ):
        validate(valid.manifest)


@pytest.mark.parametrize("reference", [5, True, 1.5, ["a"], {}, b"_control", False, 0])
def test_a_reference_that_is_no_text_fails_as_a_path(valid: Distribution, reference: Any) -> None:
    valid.manifest["signals_index"] = reference
    with fails_with(TypeError, NOT_TEXT):
        validate(valid.manifest)


@pytest.mark.parametrize(
    ("reference", "message"),
    [
        ("", EXACT_PATH),
        ("/" + OTHER_PATH, EXACT_PATH),
        (OTHER_PATH + "\n", EXACT_PATH),
        (OTHER_PATH + "/", EXACT_PATH),
        (OTHER_PATH.replace("/", "\\"), EXACT_PATH),
        ("C:" + OTHER_PATH, EXACT_PATH),
        ("./" + OTHER_PATH, SEGMENTS),
        (OTHER_PATH.replace("/", "//"), SEGMENTS),
        ("_control/../" + OTHER_PATH, SEGMENTS),
    ],
)
def test_a_reference_must_be_a_contained_path(
    valid: Distribution, reference: str, message: str
) -> None:
    valid.manifest["signals_index"] = reference
    with fails_with(ValueError, message):
        validate(valid.manifest)


@pytest.mark.parametrize(
    "reference",
    [
        "_control/other.json",
        "_control/signals_index.json",
        f"_control/signals_index.{OTHER_DIGEST[:-1]}.json",
        f"_control/signals_index.{OTHER_DIGEST}0.json",
        f"_control/signals_index.{OTHER_DIGEST[:-1]}A.json",
        f"_control/signals_index.{OTHER_DIGEST[:-1]}\u0660.json",
        f"_control/signals_index_{OTHER_DIGEST}.json",
        f"_control/signals_index.{OTHER_DIGEST}xjson",
        f"_control/signals_index.{OTHER_DIGEST}.JSON",
        f"x/_control/signals_index.{OTHER_DIGEST}.json",
        f"_control/signals_index.{OTHER_DIGEST}.json/x",
        f"signals_index.{OTHER_DIGEST}.json",
        f"_CONTROL/signals_index.{OTHER_DIGEST}.json",
        "dir/signals_index.json",
    ],
)
def test_a_reference_must_be_content_addressed(valid: Distribution, reference: str) -> None:
    valid.manifest["signals_index"] = reference
    with fails_with(ValueError, FORM):
        validate(valid.manifest)


@pytest.mark.parametrize("files", [..., None, [], [{}], "files", 5])
def test_files_must_be_an_object(valid: Distribution, files: Any) -> None:
    valid.manifest["files"] = files
    if files is ...:
        del valid.manifest["files"]
    with fails_with(ValueError, NO_FILES):
        validate(valid.manifest)


@pytest.mark.parametrize("entry", [..., None, [], "entry", 5])
def test_the_reference_must_have_an_entry(valid: Distribution, entry: Any) -> None:
    valid.files[valid.reference] = entry
    if entry is ...:
        del valid.files[valid.reference]
    with fails_with(ValueError, f"manifest files missing signals_index entry: {valid.reference}"):
        validate(valid.manifest)


@pytest.mark.parametrize("kind", [..., None, "", "Signals_index", "signals_index ", 5, []])
def test_the_entry_must_be_of_the_sidecar_kind(valid: Distribution, kind: Any) -> None:
    valid.sidecar_entry["kind"] = kind
    if kind is ...:
        del valid.sidecar_entry["kind"]
    with fails_with(ValueError, of_sidecar(valid, "kind", "signals_index")):
        validate(valid.manifest)


@pytest.mark.parametrize("entry", [None, {}, "no object", {"kind": "signals_index"}])
@pytest.mark.parametrize(
    ("key", "kind", "message"),
    [
        (5, TypeError, NOT_TEXT),
        (None, TypeError, NOT_TEXT),
        (b"bytes", TypeError, NOT_TEXT),
        ("", ValueError, EXACT_PATH),
        ("/etc", ValueError, EXACT_PATH),
        (" a", ValueError, EXACT_PATH),
        ("c:/x", ValueError, EXACT_PATH),
        ("a/../b", ValueError, SEGMENTS),
        ("signals_index.json", ValueError, LEGACY),
    ],
)
def test_every_key_of_files_is_judged_whatever_its_entry(
    valid: Distribution, key: Any, kind: type[Exception], message: str, entry: Any
) -> None:
    valid.files[key] = entry
    with fails_with(kind, message):
        validate(valid.manifest)


@pytest.mark.parametrize("entry", [None, [], "signals_index.json", 5, True])
def test_an_entry_that_is_no_object_is_passed_over(valid: Distribution, entry: Any) -> None:
    valid.files["other/file"] = entry
    assert validate(valid.manifest) == valid.reference


def test_the_retired_path_is_refused_as_the_path_of_any_entry(valid: Distribution) -> None:
    valid.files["other/file"] = {"relative_path": "signals_index.json"}
    with fails_with(ValueError, LEGACY):
        validate(valid.manifest)


def test_the_retired_path_is_refused_as_the_path_of_the_sidecar_entry(valid: Distribution) -> None:
    valid.sidecar_entry["relative_path"] = "signals_index.json"
    with fails_with(ValueError, LEGACY):
        validate(valid.manifest)


@pytest.mark.parametrize("path", [OTHER_PATH, "other/file"])
def test_a_second_entry_of_the_sidecar_kind_is_refused(valid: Distribution, path: str) -> None:
    valid.files[path] = file_entry(path, b"", "signals_index")
    with fails_with(ValueError, NOT_SOLE):
        validate(valid.manifest)


@pytest.mark.parametrize("path", [..., None, "other", 5, OTHER_PATH])
def test_the_entry_must_repeat_its_path(valid: Distribution, path: Any) -> None:
    valid.sidecar_entry["relative_path"] = path
    if path is ...:
        del valid.sidecar_entry["relative_path"]
    with fails_with(ValueError, of_sidecar(valid, "relative_path", valid.reference)):
        validate(valid.manifest)


@pytest.mark.parametrize("digest", [..., None, NOT_A_DIGEST, "", OTHER_DIGEST + "\n", 5])
def test_the_entry_must_have_a_digest(valid: Distribution, digest: Any) -> None:
    valid.sidecar_entry["sha256"] = digest
    if digest is ...:
        del valid.sidecar_entry["sha256"]
    with fails_with(ValueError, of_sidecar(valid, "sha256", "64 lowercase hex characters")):
        validate(valid.manifest)


def test_the_digest_must_be_that_of_the_path(valid: Distribution) -> None:
    valid.sidecar_entry["sha256"] = OTHER_DIGEST
    with fails_with(ValueError, "manifest signals_index path digest must match entry sha256"):
        validate(valid.manifest)


@pytest.mark.parametrize(
    ("size", "rule"),
    [
        (..., "an integer"),
        (None, "an integer"),
        (True, "an integer"),
        (1.0, "an integer"),
        ("1", "an integer"),
        (-1, "non-negative"),
    ],
)
def test_the_entry_must_have_a_size(valid: Distribution, size: Any, rule: str) -> None:
    valid.sidecar_entry["size_bytes"] = size
    if size is ...:
        del valid.sidecar_entry["size_bytes"]
    with fails_with(ValueError, of_sidecar(valid, "size_bytes", rule)):
        validate(valid.manifest)


def test_the_size_itself_is_not_compared_here(valid: Distribution) -> None:
    valid.sidecar_entry["size_bytes"] = 0
    assert validate(valid.manifest) == valid.reference


def test_the_constants_of_the_module_decide(
    valid: Distribution, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(client_manifest, "_LEGACY_SIGNALS_INDEX_PATH", "retired")
    valid.files["signals_index.json"] = {}
    assert validate(valid.manifest) == valid.reference
    with fails_with(ValueError, LEGACY):
        validate({"signals_index": "retired"})
    monkeypatch.setattr(client_manifest, "_SIGNALS_INDEX_SECTIONS", ("market_id", "absent"))
    with fails_with(
        ValueError, "manifest contains legacy inline signals_index membership: market_id"
    ):
        validate(valid.manifest)


def test_the_pattern_of_the_module_decides(
    valid: Distribution, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(client_manifest, "_SIGNALS_INDEX_PATH_RE", re.compile("(.+)/index"))
    with fails_with(ValueError, FORM):
        validate(valid.manifest)
    with fails_with(ValueError, FORM):
        validate({"signals_index": f"{OTHER_DIGEST}/index/more"})
    path = f"{OTHER_DIGEST}/index"
    entry = {**file_entry(path, b"", "signals_index"), "sha256": OTHER_DIGEST}
    assert validate({"signals_index": path, "files": {path: entry}}) is path


def test_the_called_functions_are_those_of_the_module(
    valid: Distribution, monkeypatch: pytest.MonkeyPatch
) -> None:
    calls: list[tuple[Any, ...]] = []

    def noting(name: str) -> None:
        original = getattr(client_manifest, name)

        def note(value: Any, **keywords: Any) -> Any:
            calls.append((name, value, keywords))
            return original(value, **keywords)

        monkeypatch.setattr(client_manifest, name, note)

    for name in ("validate_manifest_relative_path", "_require_sha256", "_require_nonnegative_size"):
        noting(name)
    validate(valid.manifest)
    keywords = {"relative_path": valid.reference}
    assert calls == [
        ("validate_manifest_relative_path", valid.reference, {}),
        *[("validate_manifest_relative_path", path, {}) for path in valid.files],
        ("_require_sha256", valid.sidecar_entry["sha256"], keywords),
        ("_require_nonnegative_size", valid.sidecar_entry["size_bytes"], keywords),
    ]
