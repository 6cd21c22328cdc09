"""Proves which paths have the form of a profit-and-loss file, and of which section."""

from __future__ import annotations

import pytest
from hypothesis import given
from hypothesis import strategies as st

from brindlefen.distribution import client_manifest

FORMS = {
    ("found_signals/", "/signal_is/pnl.arrow"): "found_signals",
    ("found_strategies/", "/strategy_is/pnl.arrow"): "found_strategies",
    ("useful_signals/", "/signal_os/pnl.arrow"): "useful_signals",
    ("useful_signals/", "/strategy_is/pnl.arrow"): "useful_signals",
}
PREFIXES = ["found_signals/", "found_strategies/", "useful_signals/", "other/", ""]
SUFFIXES = [
    "/signal_is/pnl.arrow",
    "/strategy_is/pnl.arrow",
    "/signal_os/pnl.arrow",
    "/strategy_os/pnl.arrow",
    "/pnl.arrow",
    "",
]


@pytest.mark.parametrize("suffix", SUFFIXES)
@pytest.mark.parametrize("prefix", PREFIXES)
@pytest.mark.parametrize("middle", ["x", "x/y/z", "", "é\n"])
def test_prefix_and_suffix_together_name_the_section(
    prefix: str, middle: str, suffix: str
) -> None:
    found = client_manifest._found_pnl_path_section(prefix + middle + suffix)
    assert found == FORMS.get((prefix, suffix))


@pytest.mark.parametrize(("prefix", "suffix"), FORMS)
def test_prefix_and_suffix_may_share_a_slash(prefix: str, suffix: str) -> None:
    found = client_manifest._found_pnl_path_section(prefix.rstrip("/") + suffix)
    assert found == FORMS[prefix, suffix]


@pytest.mark.parametrize(
    "path",
    [
        "",
        "found_signals",
        "found_signals/",
        "Found_signals/x/signal_is/pnl.arrow",
        "found_signals/x/signal_is/PNL.arrow",
        "found_signals/x/signal_is/pnl.arrow ",
        "found_signals/x/signal_is/pnl.arrow/y",
        "found_signals/xsignal_is/pnl.arrow",
        "found_signals_x/signal_is/pnl.arrow",
        "y/found_signals/x/signal_is/pnl.arrow",
        "/found_signals/x/signal_is/pnl.arrow",
    ],
)
def test_near_misses_have_no_section(path: str) -> None:
    assert client_manifest._found_pnl_path_section(path) is None


@given(st.sampled_from(sorted(FORMS)), st.text())
def test_whatever_stands_between_does_not_matter(form: tuple[str, str], middle: str) -> None:
    prefix, suffix = form
    assert client_manifest._found_pnl_path_section(prefix + middle + suffix) == FORMS[form]


@given(st.text())
def test_text_without_a_known_prefix_has_no_section(path: str) -> None:
    assert client_manifest._found_pnl_path_section("x" + path) is None
