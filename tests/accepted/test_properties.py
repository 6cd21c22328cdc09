"""Proves over made-up distributions that valid sets are accepted and single faults are named."""

from __future__ import annotations

import tempfile
from pathlib import Path
from typing import Any

from hypothesis import assume, given, settings
from hypothesis import strategies as st

from brindlefen.distribution import client_manifest
from support.distribution import Distribution, build_distribution, index_document, sha256_of
from support.failures import fails_with

# Segments that stay clear of what relative paths refuse: separators, edges of white space,
# drive prefixes and dots alone.
SEGMENTS = st.text(alphabet="abzAZ09-_.'{}% é\U0001f40d", max_size=8).map(lambda t: f"s{t}e")
PNL_LEAVES = ["signal_is/pnl.arrow", "strategy_is/pnl.arrow", "signal_os/pnl.arrow"]
SECTIONS = ["found_signals", "found_strategies", "useful_signals"]
KINDS = {
    ("found_signals", "signal_is/pnl.arrow"): "found_signal_is_pnl",
    ("found_strategies", "strategy_is/pnl.arrow"): "found_strategy_is_epoch_pnl",
}
JSON_VALUES = st.one_of(
    st.none(),
    st.booleans(),
    st.integers(),
    st.floats(allow_nan=False),
    st.text(max_size=5),
    st.lists(st.integers(), max_size=2),
    st.dictionaries(st.text(max_size=2), st.integers(), max_size=2),
)


@st.composite
def distributions(draw: st.DrawFn, *, members: int = 0) -> Distribution:
    """A valid distribution with at least `members` members, in all sections and forms."""
    sections: dict[str, dict[str, Any]] = {section: {} for section in SECTIONS}
    payloads: dict[str, bytes] = {}
    kinds: dict[str, str] = {}
    for number in range(draw(st.integers(members, 8))):
        section = draw(st.sampled_from(SECTIONS))
        leaf = draw(st.sampled_from([*PNL_LEAVES, "plain"]))
        # The number keeps paths apart, and keeps one from being the directory of another.
        path = f"{section}/{draw(SEGMENTS)}{number}/{leaf}"
        entity = draw(st.text(max_size=3))
        sections[section].setdefault(entity, {"files": []})["files"].append(path)
        payloads[path] = draw(st.binary(max_size=40))
        kinds[path] = KINDS.get((section, leaf), draw(st.text(max_size=3)))
        assume(kinds[path] != "signals_index")
    document = index_document(
        **sections,
        market_id=draw(st.integers(min_value=1)),
        era_number=draw(st.integers(min_value=1)),
    )
    return build_distribution(document, payloads, kinds)


def validate(distribution: Distribution) -> Any:
    return client_manifest.validate_accepted_distribution_set(
        distribution.manifest, distribution.sidecar, membership_payloads=distribution.payloads
    )


@given(distributions())
def test_a_valid_distribution_is_always_accepted(distribution: Distribution) -> None:
    accepted = validate(distribution)
    assert accepted.signals_index_path == distribution.reference
    assert accepted.signals_index_document == distribution.document
    assert accepted.membership_paths == tuple(sorted(distribution.payloads))


@settings(max_examples=30)
@given(distributions())
def test_a_valid_distribution_always_loads(distribution: Distribution) -> None:
    with tempfile.TemporaryDirectory() as root:
        distribution.write(Path(root))
        loaded = client_manifest.load_accepted_distribution_set(Path(root).resolve())
    assert loaded.manifest == distribution.manifest
    assert loaded.accepted == validate(distribution)


@given(distributions(members=1), st.data())
def test_a_member_entry_with_one_other_field_is_named(
    distribution: Distribution, data: st.DataObject
) -> None:
    path = data.draw(st.sampled_from(sorted(distribution.payloads)))
    entry = distribution.files[path]
    field = data.draw(st.sampled_from(["relative_path", "size_bytes", "sha256"]))
    value = data.draw(JSON_VALUES)
    right = entry[field]
    # `True` and `1.0` equal the size 1, and are refused all the same.
    assume(value != right or type(value) is not type(right))
    entry[field] = value
    with fails_with(ValueError, message(field, value, path, len(distribution.payloads[path]))):
        validate(distribution)


def message(field: str, value: Any, path: str, size: int) -> str:
    rule = {"relative_path": path, "sha256": "64 lowercase hex characters"}.get(field)
    if field == "size_bytes":
        if type(value) is int and value >= 0:
            return f"manifest advertises membership file size {value}, but {path} is {size} bytes"
        rule = "non-negative" if type(value) is int else "an integer"
    return f'manifest files["{path}"].{field} must be {rule}'


@given(distributions(members=1), st.data())
def test_a_member_entry_without_one_field_is_named(
    distribution: Distribution, data: st.DataObject
) -> None:
    path = data.draw(st.sampled_from(sorted(distribution.payloads)))
    field = data.draw(st.sampled_from(["relative_path", "size_bytes", "sha256"]))
    del distribution.files[path][field]
    with fails_with(ValueError, message(field, None, path, 0)):
        validate(distribution)


@given(distributions(members=1), st.data())
def test_a_member_with_one_other_byte_is_named(
    distribution: Distribution, data: st.DataObject
) -> None:
    path = data.draw(st.sampled_from(sorted(distribution.payloads)))
    payload = bytearray(distribution.payloads[path])
    assume(payload)
    payload[data.draw(st.integers(0, len(payload) - 1))] ^= data.draw(st.integers(1, 255))
    distribution.payloads[path] = bytes(payload)
    digest = sha256_of(bytes(payload))
    advertised = distribution.files[path]["sha256"]
    with fails_with(
        ValueError,
        f"manifest advertises membership file sha256 {advertised}, but {path} is {digest}",
    ):
        validate(distribution)


@given(distributions(), st.data())
def test_a_sidecar_with_one_other_byte_is_never_accepted(
    distribution: Distribution, data: st.DataObject
) -> None:
    sidecar = bytearray(distribution.sidecar)
    sidecar[data.draw(st.integers(0, len(sidecar) - 1))] ^= data.draw(st.integers(1, 255))
    distribution.sidecar = bytes(sidecar)
    digest = sha256_of(bytes(sidecar))
    with fails_with(
        ValueError,
        f"manifest advertises signals_index sidecar sha256 "
        f"{distribution.sidecar_entry['sha256']}, but {distribution.reference} is {digest}",
    ):
        validate(distribution)


KEYS = st.one_of(
    st.sampled_from(["signals_index", "files", "found_signals"]), st.text(max_size=9), st.integers()
)
REFERENCES = st.sampled_from(["signals_index.json", f"_control/signals_index.{'0' * 64}.json"])


@given(st.dictionaries(KEYS, st.one_of(JSON_VALUES, REFERENCES)))
def test_any_dict_as_a_manifest_fails_by_a_documented_class(manifest: dict[Any, Any]) -> None:
    try:
        client_manifest.validate_signals_index_manifest_declaration(manifest)
    except (ValueError, TypeError) as error:
        assert type(error) in (ValueError, TypeError)
    else:
        raise AssertionError("accepted")
