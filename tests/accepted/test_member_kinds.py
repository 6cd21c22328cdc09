"""Proves which members must be of a profit-and-loss kind, and which are exempt."""

from __future__ import annotations

from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.distribution import NOT_A_DIGEST, build_distribution, index_document
from support.failures import fails_with

SIGNAL_KIND = "found_signal_is_pnl"
STRATEGY_KIND = "found_strategy_is_epoch_pnl"
KINDS = {"found_signals": SIGNAL_KIND, "found_strategies": STRATEGY_KIND}

# The section whose profit-and-loss form the path has.
PATHS = {
    "found_signals/x/signal_is/pnl.arrow": "found_signals",
    "found_signals/signal_is/pnl.arrow": "found_signals",
    "found_strategies/x/strategy_is/pnl.arrow": "found_strategies",
    "found_strategies/strategy_is/pnl.arrow": "found_strategies",
    "useful_signals/x/signal_os/pnl.arrow": "useful_signals",
    "useful_signals/x/strategy_is/pnl.arrow": "useful_signals",
    "found_signals/x/signal_os/pnl.arrow": None,
    "found_signals/x/strategy_is/pnl.arrow": None,
    "found_strategies/x/signal_is/pnl.arrow": None,
    "useful_signals/x/signal_is/pnl.arrow": None,
    "x/signal_is/pnl.arrow": None,
    "x": None,
}


def validate(section: str, path: str, **fields: Any) -> Any:
    """Validates a distribution whose only member stands in `section` with these fields."""
    document = index_document(**{section: {"entity": {"files": [path]}}})
    distribution = build_distribution(document, {path: b"member"}, {})
    distribution.files[path].update(fields)
    accepted = client_manifest.validate_accepted_distribution_set(
        distribution.manifest, distribution.sidecar
    )
    assert accepted.membership_paths == (path,)


def refusal(section: str, path: str) -> str:
    return f'manifest files["{path}"].kind must be {KINDS[section]} for {section} membership'


@pytest.mark.parametrize("kind", [SIGNAL_KIND, STRATEGY_KIND, "signals", None, 5, []])
@pytest.mark.parametrize("path", PATHS)
@pytest.mark.parametrize("section", KINDS)
def test_a_pnl_path_needs_the_kind_and_the_form_of_its_section(
    section: str, path: str, kind: Any
) -> None:
    form = PATHS[path]
    if form is None or (form == section and kind == KINDS[section]):
        validate(section, path, kind=kind)
        return
    with fails_with(ValueError, refusal(section, path)):
        validate(section, path, kind=kind)


@pytest.mark.parametrize("kind", [SIGNAL_KIND, STRATEGY_KIND, "anything", None])
@pytest.mark.parametrize("path", PATHS)
def test_useful_signals_have_no_kind_rule(path: str, kind: Any) -> None:
    validate("useful_signals", path, kind=kind)


@pytest.mark.parametrize(("section", "kind"), KINDS.items())
def test_a_missing_kind_is_the_wrong_kind(section: str, kind: str) -> None:
    path = next(path for path, form in PATHS.items() if form == section)
    document = index_document(**{section: {"entity": {"files": [path]}}})
    distribution = build_distribution(document, {path: b""}, {path: kind})
    del distribution.files[path]["kind"]
    with fails_with(ValueError, refusal(section, path)):
        client_manifest.validate_accepted_distribution_set(
            distribution.manifest, distribution.sidecar
        )


@pytest.mark.parametrize("section", KINDS)
def test_the_kind_is_judged_between_path_and_digest(section: str) -> None:
    path = next(path for path, form in PATHS.items() if form == section)
    with fails_with(ValueError, f'manifest files["{path}"].relative_path must be {path}'):
        validate(section, path, relative_path="y", kind="wrong", sha256=NOT_A_DIGEST)
    with fails_with(ValueError, refusal(section, path)):
        validate(section, path, kind="wrong", sha256=NOT_A_DIGEST, size_bytes=-1)


def test_the_form_is_asked_of_the_module_function_and_only_where_it_matters(
    monkeypatch: pytest.MonkeyPatch,
) -> None:
    asked: list[str] = []

    def form(path: str) -> str:
        asked.append(path)
        return "found_signals"

    monkeypatch.setattr(client_manifest, "_found_pnl_path_section", form)
    validate("useful_signals", "x", kind="any")
    assert asked == []
    validate("found_signals", "x", kind=SIGNAL_KIND)
    with fails_with(ValueError, refusal("found_strategies", "x")):
        validate("found_strategies", "x", kind=STRATEGY_KIND)
    assert asked == ["x", "x"]
