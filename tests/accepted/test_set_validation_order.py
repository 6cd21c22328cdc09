"""Proves which fault of a set reports when manifest and sidecar have two at once."""

from __future__ import annotations

from collections.abc import Callable
from itertools import combinations
from typing import Any, NamedTuple

import pytest

from brindlefen.distribution import client_manifest
from support.distribution import (
    FIRST_FILE,
    LAST_FILE,
    MEMBERS,
    NOT_A_DIGEST,
    SIGNAL_PNL,
    STRATEGY_PNL,
    Distribution,
    sha256_of,
    valid_distribution,
)
from support.failures import fails_with

MEMBER_ENTRY = f'manifest files["{SIGNAL_PNL}"]'


class Fault(NamedTuple):
    """One fault and the words with which it reports; `{reference}` stands for the sidecar."""

    name: str
    apply: Callable[[Distribution], object]
    message: str
    kind: type[Exception] = ValueError


def republish(change: Callable[[dict[str, Any]], object]) -> Callable[[Distribution], object]:
    """A fault of the sidecar's document, under a digest that is right."""

    def apply(distribution: Distribution) -> None:
        change(distribution.document)
        distribution.publish_document()

    return apply


def manifest_gets(**fields: Any) -> Callable[[Distribution], object]:
    return lambda distribution: distribution.manifest.update(fields)


def member_gets(path: str, **fields: Any) -> Callable[[Distribution], object]:
    return lambda distribution: distribution.files[path].update(fields)


# Faults of the sidecar's content come before all that the manifest says of members, and the
# faults of its document are applied first, since each publishes the sidecar anew.
DOCUMENT_FAULTS = [
    Fault(
        "sidecar market",
        republish(lambda document: document.update(market_id=True)),
        "{reference} market_id is required and must be a positive integer",
    ),
    Fault(
        "sidecar era",
        republish(lambda document: document.update(era_number=-3)),
        "{reference} era_number is required and must be a positive integer",
    ),
    Fault(
        "section no object",
        republish(lambda document: document.update(found_signals=[])),
        "{reference} found_signals is required and must be an object",
    ),
    Fault(
        "sixth field",
        republish(lambda document: document.update(sixth=6)),
        "{reference} bytes are not canonical JSON",
    ),
]

IDENTITY_FAULTS = [
    Fault(
        "manifest market",
        manifest_gets(market_id=None),
        "manifest market_id is required and must be a positive integer",
    ),
    Fault(
        "another market",
        manifest_gets(market_id=99),
        "signals_index sidecar market_id must match manifest market_id",
    ),
    Fault(
        "manifest era",
        manifest_gets(era_number=None),
        "manifest era_number is required and must be a positive integer",
    ),
    Fault(
        "another era",
        manifest_gets(era_number=99),
        "signals_index sidecar era_number must match manifest era_number",
    ),
]

WALK_FAULT = Fault(
    "membership no object",
    republish(lambda document: document["useful_signals"].update(delta=5)),
    "signals_index useful_signals.delta must be an object",
)

MEMBER_FAULTS = [
    Fault(
        "other path",
        member_gets(SIGNAL_PNL, relative_path="x"),
        MEMBER_ENTRY + f".relative_path must be {SIGNAL_PNL}",
    ),
    Fault(
        "other kind",
        member_gets(SIGNAL_PNL, kind="other"),
        MEMBER_ENTRY + ".kind must be found_signal_is_pnl for found_signals membership",
    ),
    Fault(
        "no digest",
        member_gets(SIGNAL_PNL, sha256=NOT_A_DIGEST),
        MEMBER_ENTRY + ".sha256 must be 64 lowercase hex characters",
    ),
    Fault(
        "negative size",
        member_gets(SIGNAL_PNL, size_bytes=-1),
        MEMBER_ENTRY + ".size_bytes must be non-negative",
    ),
]

FAULTS = [*DOCUMENT_FAULTS, *IDENTITY_FAULTS, WALK_FAULT, *MEMBER_FAULTS]
EXCLUSIVE = [{"manifest market", "another market"}, {"manifest era", "another era"}]
PAIRS = [pair for pair in combinations(FAULTS, 2) if {pair[0].name, pair[1].name} not in EXCLUSIVE]


def expect(fault: Fault, broken: Distribution, **keywords: Any) -> None:
    with fails_with(fault.kind, fault.message.replace("{reference}", broken.reference)):
        client_manifest.validate_accepted_distribution_set(
            broken.manifest, broken.sidecar, **keywords
        )


@pytest.mark.parametrize("fault", FAULTS, ids=lambda fault: fault.name)
def test_each_fault_reports_when_it_is_alone(fault: Fault) -> None:
    broken = valid_distribution()
    fault.apply(broken)
    expect(fault, broken)


@pytest.mark.parametrize(("first", "second"), PAIRS, ids=lambda fault: fault.name)
def test_of_two_faults_the_earlier_step_reports(first: Fault, second: Fault) -> None:
    broken = valid_distribution()
    first.apply(broken)
    second.apply(broken)
    expect(first, broken)


@pytest.mark.parametrize("fault", FAULTS, ids=lambda fault: fault.name)
def test_the_declaration_reports_before_everything_else(fault: Fault) -> None:
    broken = valid_distribution()
    fault.apply(broken)
    broken.sidecar_entry["size_bytes"] = True
    broken.sidecar = b"not even JSON"
    with fails_with(
        ValueError, f'manifest files["{broken.reference}"].size_bytes must be an integer'
    ):
        client_manifest.validate_accepted_distribution_set(
            broken.manifest,
            None,  # type: ignore[arg-type]
        )


@pytest.mark.parametrize("fault", FAULTS, ids=lambda fault: fault.name)
def test_the_sidecar_bytes_report_before_their_content(fault: Fault) -> None:
    broken = valid_distribution()
    fault.apply(broken)
    size, digest = len(broken.sidecar), sha256_of(broken.sidecar)
    broken.sidecar = b"\xff" * size
    found = sha256_of(broken.sidecar)
    words = f"sha256 {digest}, but {broken.reference} is {found}"
    expect(Fault("", print, f"manifest advertises signals_index sidecar {words}"), broken)
    broken.sidecar += b"\xff"
    words = f"size {size}, but {broken.reference} is {size + 1} bytes"
    expect(Fault("", print, f"manifest advertises signals_index sidecar {words}"), broken)


@pytest.mark.parametrize("fault", FAULTS, ids=lambda fault: fault.name)
def test_the_payloads_report_after_everything_else(fault: Fault) -> None:
    broken = valid_distribution()
    fault.apply(broken)
    expect(fault, broken, membership_payloads=5)
    expect(fault, broken, membership_payloads={})


@pytest.mark.parametrize(
    ("first", "second"), list(combinations(MEMBERS, 2)), ids=lambda path: path.split("/")[0]
)
def test_the_first_faulty_member_in_sorted_order_reports(first: str, second: str) -> None:
    broken = valid_distribution()
    broken.files[first]["size_bytes"] = True
    del broken.files[second]
    with fails_with(ValueError, f'manifest files["{first}"].size_bytes must be an integer'):
        client_manifest.validate_accepted_distribution_set(broken.manifest, broken.sidecar)


def test_the_order_of_members_is_neither_that_of_the_sidecar_nor_of_the_manifest() -> None:
    broken = valid_distribution()
    assert list(broken.payloads) == sorted(MEMBERS, reverse=True)
    for path in (LAST_FILE, STRATEGY_PNL, FIRST_FILE):
        broken.files[path]["sha256"] = None
    with fails_with(
        ValueError, f'manifest files["{FIRST_FILE}"].sha256 must be 64 lowercase hex characters'
    ):
        client_manifest.validate_accepted_distribution_set(broken.manifest, broken.sidecar)
