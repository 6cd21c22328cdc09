"""Proves that the set validation calls what stands in the module, with the agreed arguments."""

from __future__ import annotations

from types import SimpleNamespace
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.distribution import (
    ERA_NUMBER,
    MARKET_ID,
    MEMBERS,
    Distribution,
    empty_distribution,
    file_entry,
    index_document,
)
from support.failures import fails_with


def validate(distribution: Distribution, **keywords: Any) -> Any:
    return client_manifest.validate_accepted_distribution_set(
        distribution.manifest, distribution.sidecar, **keywords
    )


def note_calls(monkeypatch: pytest.MonkeyPatch, *names: str) -> list[tuple[Any, ...]]:
    """Lets the named functions of the module note their calls, and work on."""
    calls: list[tuple[Any, ...]] = []

    def noting(name: str) -> Any:
        original = getattr(client_manifest, name)

        def note(*arguments: Any, **keywords: Any) -> Any:
            calls.append((name, *arguments, keywords))
            return original(*arguments, **keywords)

        return note

    for name in names:
        monkeypatch.setattr(client_manifest, name, noting(name))
    return calls


def test_the_stages_are_called_in_order(
    valid: Distribution, monkeypatch: pytest.MonkeyPatch
) -> None:
    calls = note_calls(
        monkeypatch,
        "validate_signals_index_manifest_declaration",
        "_validate_entry_bytes",
        "parse_canonical_signals_index_bytes",
        "_membership_references",
    )
    accepted = validate(valid, membership_payloads=valid.payloads)
    reference = valid.reference
    assert calls == [
        ("validate_signals_index_manifest_declaration", valid.manifest, {}),
        (
            "_validate_entry_bytes",
            valid.sidecar_entry,
            {
                "relative_path": reference,
                "payload": valid.sidecar,
                "label": "signals_index sidecar",
            },
        ),
        ("parse_canonical_signals_index_bytes", valid.sidecar, {"label": reference}),
        ("_membership_references", valid.document, {}),
        *[
            (
                "_validate_entry_bytes",
                valid.files[path],
                {
                    "relative_path": path,
                    "payload": valid.payloads[path],
                    "label": "membership file",
                },
            )
            for path in MEMBERS
        ],
    ]
    assert accepted.signals_index_document is calls[3][1]


def test_each_identity_is_required_under_its_own_label(monkeypatch: pytest.MonkeyPatch) -> None:
    distribution = empty_distribution()
    calls = note_calls(monkeypatch, "_require_positive_identity")
    validate(distribution)
    reference = distribution.reference
    assert calls == [
        ("_require_positive_identity", MARKET_ID, {"label": f"{reference} market_id"}),
        ("_require_positive_identity", ERA_NUMBER, {"label": f"{reference} era_number"}),
        ("_require_positive_identity", MARKET_ID, {"label": "manifest market_id"}),
        ("_require_positive_identity", MARKET_ID, {"label": "signals_index market_id"}),
        ("_require_positive_identity", ERA_NUMBER, {"label": "manifest era_number"}),
        ("_require_positive_identity", ERA_NUMBER, {"label": "signals_index era_number"}),
    ]


def test_every_member_is_required_to_have_digest_and_size(
    valid: Distribution, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(
        client_manifest,
        "validate_signals_index_manifest_declaration",
        lambda manifest: manifest["signals_index"],
    )
    monkeypatch.setattr(client_manifest, "_validate_entry_bytes", lambda entry, **keywords: None)
    calls = note_calls(monkeypatch, "_require_sha256", "_require_nonnegative_size")
    validate(valid)
    expected: list[tuple[Any, ...]] = []
    for path in MEMBERS:
        entry, keywords = valid.files[path], {"relative_path": path}
        expected.append(("_require_sha256", entry["sha256"], keywords))
        expected.append(("_require_nonnegative_size", entry["size_bytes"], keywords))
    assert calls == expected


@pytest.mark.parametrize(
    ("parsed", "message"),
    [
        (
            {"market_id": None, "era_number": None},
            "signals_index market_id is required and must be a positive integer",
        ),
        (
            {"market_id": MARKET_ID + 1, "era_number": None},
            "signals_index sidecar market_id must match manifest market_id",
        ),
        (
            {"market_id": MARKET_ID, "era_number": None},
            "signals_index era_number is required and must be a positive integer",
        ),
        (
            {"market_id": MARKET_ID, "era_number": ERA_NUMBER + 1},
            "signals_index sidecar era_number must match manifest era_number",
        ),
        (
            {"market_id": MARKET_ID, "era_number": ERA_NUMBER},
            "signals_index found_signals must be an object",
        ),
    ],
)
def test_the_parsed_sidecar_is_judged_again(
    valid: Distribution,
    monkeypatch: pytest.MonkeyPatch,
    parsed: dict[str, Any],
    message: str,
) -> None:
    monkeypatch.setattr(
        client_manifest, "parse_canonical_signals_index_bytes", lambda payload, *, label: parsed
    )
    with fails_with(ValueError, message):
        validate(valid)


@pytest.mark.parametrize("field", ["market_id", "era_number"])
def test_the_manifest_identity_reports_before_that_of_the_sidecar(
    valid: Distribution, monkeypatch: pytest.MonkeyPatch, field: str
) -> None:
    parsed = {**index_document(), field: None}
    monkeypatch.setattr(
        client_manifest, "parse_canonical_signals_index_bytes", lambda payload, *, label: parsed
    )
    valid.manifest[field] = None
    with fails_with(ValueError, f"manifest {field} is required and must be a positive integer"):
        validate(valid)


def test_the_returned_reference_and_references_are_what_counts(
    monkeypatch: pytest.MonkeyPatch,
) -> None:
    distribution = empty_distribution()
    sidecar = distribution.sidecar
    distribution.files["elsewhere"] = file_entry("elsewhere", sidecar)
    distribution.files["member"] = file_entry("member", b"")
    monkeypatch.setattr(
        client_manifest, "validate_signals_index_manifest_declaration", lambda _: "elsewhere"
    )
    monkeypatch.setattr(
        client_manifest, "_membership_references", lambda _: (("member", "useful_signals"),)
    )
    accepted = validate(distribution)
    assert accepted.signals_index_path == "elsewhere"
    assert accepted.membership_paths == ("member",)


def test_the_manifest_is_asked_through_its_own_lookup(valid: Distribution) -> None:
    files_without_members = {valid.reference: valid.sidecar_entry}

    class Redirecting(dict[str, Any]):
        def __getitem__(self, key: str) -> Any:
            assert key == "files"
            return files_without_members

    manifest = Redirecting(valid.manifest)
    with fails_with(
        ValueError, f"signals_index references a path not advertised in manifest: {MEMBERS[0]}"
    ):
        client_manifest.validate_accepted_distribution_set(manifest, valid.sidecar)


def test_the_record_is_made_by_the_class_in_the_module(
    valid: Distribution, monkeypatch: pytest.MonkeyPatch
) -> None:
    def record(
        signals_index_path: str, signals_index_document: Any, membership_paths: Any
    ) -> SimpleNamespace:
        return SimpleNamespace(
            path=signals_index_path, document=signals_index_document, members=membership_paths
        )

    monkeypatch.setattr(client_manifest, "AcceptedDistributionSet", record)
    assert validate(valid) == SimpleNamespace(
        path=valid.reference, document=valid.document, members=MEMBERS
    )
