"""Proves which values count as a positive integer: what the host's `int` takes, but no boolean."""

from __future__ import annotations

import warnings
from collections.abc import Callable
from decimal import Decimal
from fractions import Fraction
from typing import Any

import pytest
from hypothesis import given
from hypothesis import strategies as st

from brindlefen.distribution import client_manifest
from support.failures import fails_with
from support.naming import named

positive = client_manifest.positive_manifest_int

GOOD: list[tuple[Any, int]] = [
    (1, 1),
    (7, 7),
    (2**63, 2**63),
    (10**4000, 10**4000),
    (1.0, 1),
    (2.9, 2),
    (1e300, int(1e300)),
    ("3", 3),
    (" \t3\n", 3),
    ("\u2003\u00a03\u3000", 3),
    ("+3", 3),
    ("0003", 3),
    ("1_000", 1000),
    ("\u0663", 3),
    ("\uff11\uff12", 12),
    (b"12", 12),
    (b" +1_2 ", 12),
    (bytearray(b"12"), 12),
    (Decimal("3.99"), 3),
    (Fraction(7, 2), 3),
]

BAD: list[Any] = [
    None,
    True,
    False,
    0,
    -1,
    -(10**4000),
    0.0,
    -0.0,
    0.5,
    0.999,
    -2.9,
    float("nan"),
    "",
    " ",
    "0",
    "-3",
    "3.0",
    "3e2",
    "0x10",
    "1__0",
    "_1",
    "1_",
    "+ 3",
    "three",
    "3\0",
    "\udcff",
    "½",
    b"",
    b"-1",
    b"x",
    b"1\xff",
    b"\xd9\xa3",
    bytearray(b"0"),
    memoryview(b"x"),
    [],
    [1],
    {},
    {"a": 1},
    (1,),
    {1},
    1j,
    Decimal("0.5"),
    Decimal("NaN"),
    Fraction(-7, 2),
    Ellipsis,
    object(),
    int,
]


@pytest.mark.parametrize(("value", "expected"), GOOD, ids=lambda value: named(value)[:20])
def test_what_counts_gives_an_exact_integer(value: Any, expected: int) -> None:
    found = positive(value)
    assert found == expected
    assert type(found) is int


@pytest.mark.parametrize("value", BAD, ids=lambda value: named(value)[:20])
def test_what_does_not_count_gives_none(value: Any) -> None:
    assert positive(value) is None


def test_an_exact_integer_stands_as_it_is() -> None:
    for value in (5, 10**100):
        assert positive(value) is value


def test_text_that_is_too_long_for_the_host_gives_none() -> None:
    assert positive("1" * 5000) is None
    assert positive(b"1" * 5000) is None
    assert positive("1" * 4000) == int("1" * 4000)
    assert positive(10**5000) == 10**5000


@pytest.mark.parametrize("value", [float("inf"), float("-inf"), Decimal("Infinity")], ids=named)
def test_an_infinite_number_passes_the_failure_of_the_host(value: Any) -> None:
    with fails_with(OverflowError, None):
        positive(value)


def by(method: str, give: Callable[[Any], Any], base: type = object) -> Any:
    """A value of a class of its own with this one method."""
    return type("Value", (base,), {method: give})


def giving(value: Any) -> Callable[[Any], Any]:
    return lambda self: value


def raising(error: BaseException) -> Callable[[Any], Any]:
    def give(self: Any) -> Any:
        raise error

    return give


@pytest.mark.parametrize("method", ["__int__", "__index__"])
def test_a_value_that_converts_itself_counts(method: str) -> None:
    for given_back, expected in ((5, 5), (0, None), (-5, None), ("5", None), (5.0, None)):
        assert positive(by(method, giving(given_back))()) == expected
    # The host's conversion takes a boolean from the method, and makes no integer of it itself.
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", DeprecationWarning)
        assert positive(by(method, giving(True))()) == 1


def test_the_integer_method_comes_before_the_index() -> None:
    value = type("Both", (), {"__int__": lambda self: 4, "__index__": lambda self: 9})()
    assert positive(value) == 4


def test_a_value_that_only_truncates_counts_as_for_the_host() -> None:
    value = by("__trunc__", giving(6))()
    with pytest.warns(DeprecationWarning):
        assert positive(value) == 6
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        with pytest.raises(DeprecationWarning):
            positive(value)


@pytest.mark.parametrize("base", [int, float, str, bytes])
def test_a_subclass_is_converted_as_the_host_converts_it(base: type) -> None:
    for given_back in (8, -8):
        kind = by("__int__", giving(given_back), base)
        value = kind(b"3" if base is bytes else 3)
        assert positive(value) == (int(value) if int(value) > 0 else None)
    plain = type("Plain", (base,), {})(b"3" if base is bytes else 3)
    assert positive(plain) == 3
    assert type(positive(plain)) is int


def test_a_result_of_a_class_of_its_own_becomes_a_plain_integer() -> None:
    own = type("Own", (int,), {})
    value = by("__int__", giving(own(5)))()
    with pytest.warns(DeprecationWarning):
        found = positive(value)
    assert (found, type(found)) == (5, int)


@pytest.mark.parametrize("method", ["__int__", "__index__", "__trunc__"])
@pytest.mark.parametrize(
    "error",
    [
        TypeError("no"),
        ValueError("no"),
        UnicodeError("no"),
        client_manifest.StrictJsonError("no"),
        type("Own", (TypeError,), {})("no"),
    ],
    ids=lambda error: type(error).__name__,
)
@pytest.mark.filterwarnings("ignore::DeprecationWarning")
def test_a_refusal_to_convert_gives_none(method: str, error: BaseException) -> None:
    assert positive(by(method, raising(error))()) is None


@pytest.mark.parametrize("method", ["__int__", "__index__", "__trunc__"])
@pytest.mark.parametrize(
    "error",
    [
        OverflowError("no"),
        ArithmeticError("no"),
        AttributeError("no"),
        RuntimeError("no"),
        RecursionError("no"),
        MemoryError("no"),
        OSError(2, "no"),
        KeyError("no"),
        KeyboardInterrupt("no"),
        SystemExit("no"),
    ],
    ids=lambda error: type(error).__name__,
)
@pytest.mark.filterwarnings("ignore::DeprecationWarning")
def test_any_other_failure_passes(method: str, error: BaseException) -> None:
    with pytest.raises(type(error)) as raised:
        positive(by(method, raising(error))())
    assert raised.value is error


def of_the_host(value: Any) -> int | None:
    try:
        found = int(value)
    except (TypeError, ValueError):
        return None
    return found if found > 0 else None


@given(
    st.one_of(
        st.integers(),
        st.floats(allow_infinity=False),
        st.text(max_size=12),
        st.text(alphabet=" +-_0123456789.e\u0663\u2003", max_size=8),
        st.binary(max_size=8),
        st.decimals(allow_infinity=False, allow_nan=False, places=2),
        st.fractions(),
        st.lists(st.integers(), max_size=2),
    )
)
def test_every_value_counts_as_the_host_converts_it(value: Any) -> None:
    assert positive(value) == of_the_host(value)


def test_the_value_is_taken_by_position_or_by_name() -> None:
    function: Any = positive
    assert function(value="3") == 3
    for args, keywords in (((), {}), ((1, 2), {}), ((), {"other": 1})):
        with fails_with(TypeError, None):
            function(*args, **keywords)
