"""Leak scenarios without a disk: documents, paths, entries, whole sets, and misused operations."""

from __future__ import annotations

import importlib.util
import os
from collections.abc import Callable
from typing import Any

from brindlefen.distribution import client_manifest

from leaks.scenarios import Ground, Hostile, Own, Scenario
from support.distribution import (
    MEMBERS,
    SIGNAL_PNL,
    STRATEGY_PNL,
    Distribution,
    canonical_bytes,
    empty_distribution,
    file_entry,
    index_document,
    valid_distribution,
)

SCENARIOS: dict[str, Scenario] = {}


def _add(
    name: str,
    function: str,
    *arguments: Any,
    failure: type[BaseException] | None = None,
    **keywords: Any,
) -> None:
    def act(ground: Ground) -> object:
        return getattr(client_manifest, function)(*arguments, **keywords)

    SCENARIOS[f"{function}, {name}"] = Scenario(act, failure)


# --- Strict documents

PARSERS: dict[str, type[BaseException]] = {
    "parse_strict_json_object_bytes": client_manifest.StrictJsonError,
    "parse_distribution_manifest_bytes": client_manifest.ManifestJsonError,
    "parse_canonical_signals_index_bytes": client_manifest.StrictJsonError,
}
UNSOUND = {
    "no UTF-8": b'{"a": "\xff"}',
    "malformed": b'{"a": 1,}',
    "cut short": b'{"a": [{"b"',
    "a repeated key": b'{"a": {"b": 1, "b": {"c": [1, 2]}}}',
    "not finite": b'{"a": [1, NaN]}',
    "no object": b'[{"a": 1}]',
}
SOUND = valid_distribution().sidecar

for parser, refusal in PARSERS.items():
    _add("sound", parser, SOUND, label="label")
    _add("no bytes", parser, bytearray(b"{}"), label="label", failure=TypeError)
    _add("a label that fails", parser, None, label=Hostile(), failure=Own)
    _add("too deep", parser, b'{"a": ' + b"[" * 100_000, label="label", failure=RecursionError)
    for name, payload in UNSOUND.items():
        _add(name, parser, payload, label="label", failure=refusal)

_add("distinct", "_object_without_duplicate_keys", [("a", 1), ("b", [])])
_add(
    "repeated",
    "_object_without_duplicate_keys",
    [("a", []), ("a", 1)],
    failure=client_manifest._DuplicateJsonObjectKeyError,
)
_add("no pair", "_object_without_duplicate_keys", [("a",)], failure=ValueError)
_add("three", "_object_without_duplicate_keys", [(1, 2, 3)], failure=ValueError)
_add("no hash", "_object_without_duplicate_keys", [([], 1)], failure=TypeError)
_add("hostile key", "_object_without_duplicate_keys", [(Hostile(), 1)], failure=Own)
_add(
    "a constant",
    "_reject_nonfinite_json_constant",
    "NaN",
    failure=client_manifest.StrictJsonError,
)

INDEX = "parse_canonical_signals_index_bytes"
NO_INDEX: dict[str, bytes] = {
    "a member too many": canonical_bytes({**index_document(), "more": 1}),
    "no market": canonical_bytes(index_document(market_id=0)),
    "a true era": canonical_bytes(index_document(era_number=True)),
    "a section that is a list": canonical_bytes(index_document(useful_signals=[])),
    "spaces": SOUND + b" ",
}
for name, payload in NO_INDEX.items():
    _add(name, INDEX, payload, failure=ValueError)

PATHS: dict[str, tuple[Any, type[BaseException] | None]] = {
    "exact": ("found_signals/a/é.bin", None),
    "no text": (b"a", TypeError),
    "empty": ("", ValueError),
    "blank at the end": ("a ", ValueError),
    "backslash": ("a\\b", ValueError),
    "drive": ("C:x", ValueError),
    "dots": ("a/../b", ValueError),
}
for name, (path, kind) in PATHS.items():
    _add(name, "validate_manifest_relative_path", path, failure=kind)

# --- Entries

LOOK = os.stat("/")
ENTRY = file_entry("a", b"\0")
PLACE: dict[str, Any] = {"relative_path": "a"}
DIGEST: dict[str, Any] = {**PLACE, "actual_size": 1, "label": "file"}


class _Look:
    st_mtime = 1.5
    st_ctime = 2**70
    st_size = 3


_add("of the host", "_stat_nanoseconds", LOOK, "st_mtime")
_add("from seconds", "_stat_nanoseconds", _Look(), "st_ctime")
_add("without the field", "_stat_nanoseconds", _Look(), "st_atime", failure=AttributeError)
_add("of the host", "_regular_file_stat_key", LOOK)
_add("of a stand-in", "_regular_file_stat_key", _Look())
_add("of nothing", "_regular_file_stat_key", None, failure=AttributeError)
_add("hostile", "_regular_file_stat_key", Hostile(), failure=Own)
_add("good", "_require_positive_identity", 10**40, label="a")
_add("bad", "_require_positive_identity", True, label="a", failure=ValueError)
_add("a label that fails", "_require_positive_identity", 0, label=Hostile(), failure=Own)
_add("good", "_require_nonnegative_size", 10**40, **PLACE)
_add("no integer", "_require_nonnegative_size", 1.5, **PLACE, failure=ValueError)
_add("negative", "_require_nonnegative_size", -(10**40), **PLACE, failure=ValueError)
_add("good", "_require_sha256", "0" * 64, **PLACE)
_add("bad", "_require_sha256", "0" * 63, **PLACE, failure=ValueError)
_add("no text", "_require_sha256", b"0" * 64, **PLACE, failure=ValueError)
_add("good", "_validate_entry_bytes", ENTRY, **PLACE, payload=b"\0", label="file")
_add("no bytes", "_validate_entry_bytes", ENTRY, **PLACE, payload="", label="", failure=TypeError)
_add(
    "wrong size", "_validate_entry_bytes", ENTRY, **PLACE, payload=b"", label="", failure=ValueError
)
_add("wrong digest", "_validate_entry_digest", ENTRY, **DIGEST, actual_sha="", failure=ValueError)
_add("no mapping", "_validate_entry_digest", [], **DIGEST, actual_sha="", failure=AttributeError)
_add("hostile", "_validate_entry_digest", Hostile(), **DIGEST, actual_sha="", failure=Own)

_add("a form", "_found_pnl_path_section", SIGNAL_PNL)
_add("no form", "_found_pnl_path_section", "a")
_add("no text", "_found_pnl_path_section", 1, failure=TypeError)
_add("sound", "_membership_references", valid_distribution().document)
_add("no section", "_membership_references", {}, failure=ValueError)
_add("no mapping", "_membership_references", [], failure=AttributeError)
for name, section in {
    "a membership that is none": {"a": []},
    "files that are none": {"a": {"files": None}},
    "a path twice": {"a": {"files": ["b", "b"]}},
    "a path that is none": {"a": {"files": ["b", "../b"]}},
}.items():
    _add(name, "_membership_references", index_document(useful_signals=section), failure=ValueError)

# --- Declarations and sets


def _changed(change: Callable[[Distribution], object]) -> Distribution:
    distribution = valid_distribution()
    change(distribution)
    return distribution


def _set(key: str, value: object) -> Callable[[Distribution], object]:
    return lambda distribution: distribution.manifest.update({key: value})


DECLARATION = "validate_signals_index_manifest_declaration"
_add("sound", DECLARATION, valid_distribution().manifest)
_add("no dict", DECLARATION, [], failure=TypeError)
for name, change in {
    "nothing declared": _set("signals_index", None),
    "the retired name": _set("signals_index", "signals_index.json"),
    "inline sections": _set("useful_signals", {}),
    "no content address": _set("signals_index", "_control/signals_index.json"),
    "files in a list": _set("files", []),
    "no entry": _set("files", {}),
    "another digest": lambda distribution: distribution.sidecar_entry.update(sha256="0" * 64),
    "another kind": lambda distribution: distribution.sidecar_entry.update(kind="other"),
    "a bad key": lambda distribution: distribution.files.update({"../a": {}}),
    "a retired entry": lambda distribution: distribution.files.update(
        {"a": {"relative_path": "signals_index.json"}}
    ),
}.items():
    _add(name, DECLARATION, _changed(change).manifest, failure=ValueError)

VALIDATE = "validate_accepted_distribution_set"
WHOLE = valid_distribution()
_add("sound", VALIDATE, WHOLE.manifest, WHOLE.sidecar)
_add("empty", VALIDATE, empty_distribution().manifest, empty_distribution().sidecar)
_add("with payloads", VALIDATE, WHOLE.manifest, WHOLE.sidecar, membership_payloads=WHOLE.payloads)
for name, payloads in {
    "too few payloads": {},
    "too many payloads": {**WHOLE.payloads, "more": b""},
    "other payloads": {path: b"other" for path in MEMBERS},
}.items():
    _add(
        name,
        VALIDATE,
        WHOLE.manifest,
        WHOLE.sidecar,
        membership_payloads=payloads,
        failure=ValueError,
    )
NO_PAYLOADS: dict[str, Any] = {
    "a list of payloads": [],
    "text for a payload": dict.fromkeys(MEMBERS, ""),
}
for name, wrong in NO_PAYLOADS.items():
    _add(
        name, VALIDATE, WHOLE.manifest, WHOLE.sidecar, membership_payloads=wrong, failure=TypeError
    )
for name, change in {
    "another market": _set("market_id", 8),
    "no era": _set("era_number", None),
    "a member not advertised": lambda distribution: distribution.files.pop(SIGNAL_PNL),
    "a member elsewhere": lambda distribution: distribution.files[SIGNAL_PNL].update(
        relative_path="a"
    ),
    "a member of another kind": lambda distribution: distribution.files[STRATEGY_PNL].update(
        kind="other"
    ),
    "a member without a digest": lambda distribution: distribution.files[STRATEGY_PNL].pop(
        "sha256"
    ),
    "a member without a size": lambda distribution: distribution.files[SIGNAL_PNL].pop(
        "size_bytes"
    ),
}.items():
    broken = _changed(change)
    _add(name, VALIDATE, broken.manifest, broken.sidecar, failure=ValueError)

# --- The frame

_add("by the host's name", "_pinned_root_class")
_add("a name", "_pinned_root_class", "posix")
_add("a hostile name", "_pinned_root_class", Hostile(), failure=Own)
_add("made", "ContainedFileIdentity", 1, "a", 2, 3, 4, 5)
_add("made", "AcceptedDistributionSet", "a", {}, ())
_add("made", "LoadedAcceptedDistributionSet", {}, None, b"", [])

SHAPES: dict[str, tuple[tuple[Any, ...], dict[str, Any]]] = {
    "nothing given": ((), {}),
    "too much given": ((1, 2, 3), {}),
    "an unknown keyword": ((b"{}",), {"label": "", "more": 1}),
    "one given twice": ((b"{}",), {"label": "", "payload": b"{}"}),
}
for name, (arguments, keywords) in SHAPES.items():
    _add(name, "parse_strict_json_object_bytes", *arguments, **keywords, failure=TypeError)


def _stat_key_of_a_record(ground: Ground) -> object:
    return client_manifest.ContainedFileIdentity(1, "a", 2, 3, 4, 5).stat_key


def _load_a_second_time(ground: Ground) -> None:
    spec = importlib.util.find_spec(client_manifest.__name__)
    assert spec is not None and spec.loader is not None
    spec.loader.exec_module(importlib.util.module_from_spec(spec))


def _lose_a_binding(ground: Ground) -> object:
    judge = client_manifest.validate_manifest_relative_path
    del client_manifest.validate_manifest_relative_path
    try:
        return client_manifest._membership_references(WHOLE.document)
    finally:
        client_manifest.validate_manifest_relative_path = judge


SCENARIOS["stat_key of a record"] = Scenario(_stat_key_of_a_record)
SCENARIOS["a second load"] = Scenario(_load_a_second_time, RuntimeError)
SCENARIOS["a binding gone"] = Scenario(_lose_a_binding, NameError)
