"""Proves which fault of a declaration reports when a manifest has two at once."""

from __future__ import annotations

from collections.abc import Callable
from itertools import combinations
from typing import Any, NamedTuple

import pytest

from brindlefen.distribution import client_manifest
from support.distribution import OTHER_DIGEST, Distribution, file_entry, valid_distribution
from support.failures import fails_with

LEGACY = "legacy signals_index.json sidecar is not supported"
EXACT_PATH = "manifest relative path must be an exact relative POSIX path"
NOT_TEXT = "manifest relative path must be a string"
NOT_SOLE = "manifest must declare exactly one signals_index file entry"
ENTRY = 'manifest files["{reference}"]'


class Fault(NamedTuple):
    """One fault, the place that it occupies, and how it reports.

    Two faults in the same place exclude each other. `{reference}` in the message stands for
    the path of the valid declaration.
    """

    name: str
    place: str
    apply: Callable[[dict[str, Any], str], object]
    message: str
    kind: type[Exception] = ValueError


def reference_becomes(value: Any) -> Callable[[dict[str, Any], str], object]:
    return lambda manifest, reference: manifest.update(signals_index=value)


def sidecar_entry_gets(**fields: Any) -> Callable[[dict[str, Any], str], object]:
    return lambda manifest, reference: manifest["files"][reference].update(fields)


def sidecar_entry_becomes(value: Any) -> Callable[[dict[str, Any], str], object]:
    return lambda manifest, reference: manifest["files"].update({reference: value})


def files_get(path: Any, entry: Any) -> Callable[[dict[str, Any], str], object]:
    return lambda manifest, reference: manifest["files"].update({path: entry})


SECOND = file_entry("second/sidecar", b"", "signals_index")

# In the order in which they must report.
FAULTS = [
    Fault(
        "no reference",
        "reference",
        reference_becomes(None),
        "manifest signals_index is required",
    ),
    Fault("retired reference", "reference", reference_becomes("signals_index.json"), LEGACY),
    Fault(
        "inline section",
        "inline",
        lambda manifest, reference: manifest.update(found_signals={}),
        "manifest contains legacy inline signals_index membership: found_signals",
    ),
    Fault("reference of no text", "reference", reference_becomes(5), NOT_TEXT, TypeError),
    Fault("reference of no path", "reference", reference_becomes("/x"), EXACT_PATH),
    Fault(
        "reference of another form",
        "reference",
        reference_becomes("_control/other.json"),
        "manifest signals_index must reference _control/signals_index.<sha256>.json",
    ),
    Fault(
        "files a list",
        "files",
        lambda manifest, reference: manifest.update(files=[]),
        "manifest files must contain the signals_index entry",
    ),
    Fault(
        "entry a list",
        "files",
        sidecar_entry_becomes([]),
        "manifest files missing signals_index entry: {reference}",
    ),
    Fault(
        "entry of another kind",
        "kind",
        sidecar_entry_gets(kind="other"),
        ENTRY + ".kind must be signals_index",
    ),
    Fault("key of no text", "key", files_get(5, {}), NOT_TEXT, TypeError),
    Fault("key of no path", "key", files_get("/x", None), EXACT_PATH),
    Fault("retired key", "key", files_get("signals_index.json", None), LEGACY),
    Fault(
        "retired path of an entry",
        "key",
        files_get("x", {"relative_path": "signals_index.json", "kind": "signals_index"}),
        LEGACY,
    ),
    Fault("second sidecar", "count", files_get("second/sidecar", SECOND), NOT_SOLE),
    Fault(
        "other path in the entry",
        "relative_path",
        sidecar_entry_gets(relative_path="x"),
        ENTRY + ".relative_path must be {reference}",
    ),
    Fault(
        "malformed digest",
        "sha256",
        sidecar_entry_gets(sha256="x"),
        ENTRY + ".sha256 must be 64 lowercase hex characters",
    ),
    Fault(
        "other digest",
        "sha256",
        sidecar_entry_gets(sha256=OTHER_DIGEST),
        "manifest signals_index path digest must match entry sha256",
    ),
    Fault(
        "boolean size",
        "size_bytes",
        sidecar_entry_gets(size_bytes=True),
        ENTRY + ".size_bytes must be an integer",
    ),
]

PAIRS = [pair for pair in combinations(FAULTS, 2) if pair[0].place != pair[1].place]


def expect(fault: Fault, broken: Distribution, reference: str) -> None:
    with fails_with(fault.kind, fault.message.replace("{reference}", reference)):
        client_manifest.validate_signals_index_manifest_declaration(broken.manifest)


@pytest.mark.parametrize("fault", FAULTS, ids=lambda fault: fault.name)
def test_each_fault_reports_when_it_is_alone(fault: Fault) -> None:
    broken = valid_distribution()
    reference = broken.reference
    fault.apply(broken.manifest, reference)
    expect(fault, broken, reference)


@pytest.mark.parametrize(("first", "second"), PAIRS, ids=lambda fault: fault.name)
def test_of_two_faults_the_earlier_step_reports(first: Fault, second: Fault) -> None:
    broken = valid_distribution()
    reference = broken.reference
    # The earlier fault goes in last, since it may take away what the later one changes.
    second.apply(broken.manifest, reference)
    first.apply(broken.manifest, reference)
    expect(first, broken, reference)


KEY_FAULTS = [fault for fault in FAULTS if fault.place == "key"]


@pytest.mark.parametrize("second", KEY_FAULTS, ids=lambda fault: fault.name)
@pytest.mark.parametrize("first", KEY_FAULTS, ids=lambda fault: fault.name)
def test_among_the_keys_of_files_document_order_decides(first: Fault, second: Fault) -> None:
    broken = valid_distribution()
    reference = broken.reference
    first.apply(broken.manifest, reference)
    second.apply(broken.manifest, reference)
    expect(first, broken, reference)


def test_a_key_is_judged_before_the_path_of_its_own_entry() -> None:
    broken = valid_distribution()
    broken.files["/x"] = {"relative_path": "signals_index.json"}
    with fails_with(ValueError, EXACT_PATH):
        client_manifest.validate_signals_index_manifest_declaration(broken.manifest)


def test_the_keys_before_the_sidecar_are_judged_too() -> None:
    broken = valid_distribution()
    broken.manifest["files"] = {"/x": None, **broken.files}
    with fails_with(ValueError, EXACT_PATH):
        client_manifest.validate_signals_index_manifest_declaration(broken.manifest)
