"""Proves what is an identity, a size and a digest, and the words for what is not."""

from __future__ import annotations

import re
from collections.abc import Callable
from typing import Any

import pytest
from hypothesis import given
from hypothesis import strategies as st

from brindlefen.distribution import client_manifest
from support.failures import fails_with

DIGEST = "0123456789abcdef" * 4

# Braces, percent signs and lone surrogates would change under a second round of formatting.
AWKWARD_TEXTS = ["", "{label}", "{0}", "{", "}}", "%s %d %", "\ud800 é \U0001f40d", "a\x00b"]

HUGE = pytest.param(10**5000, id="too long to be written")

NO_INTEGERS: list[Any] = [None, True, False, 1.0, 1.5, "1", b"1", [], {}, 1j, float("nan")]


class Number(int):
    """An integer of the caller's own class."""


class Text(str):
    """A text of the caller's own class."""


class Refusing(int):
    """An integer that does not let itself be compared."""

    def refuse(self, other: object) -> bool:
        raise LookupError("no comparison")

    __lt__ = __le__ = __gt__ = __ge__ = refuse


def identity_message(label: str) -> str:
    return label + " is required and must be a positive integer"


def size_message(path: str, rule: str) -> str:
    return 'manifest files["' + path + '"].size_bytes must be ' + rule


def digest_message(path: str) -> str:
    return 'manifest files["' + path + '"].sha256 must be 64 lowercase hex characters'


@pytest.mark.parametrize("value", [1, 2**31, 2**63, 2**64, HUGE, Number(5)])
def test_a_positive_integer_is_returned_as_it_came(value: int) -> None:
    assert client_manifest._require_positive_identity(value, label="id") is value


@pytest.mark.parametrize("value", [*NO_INTEGERS, 0, -1, -(2**64), Number(0), Number(-5)])
def test_anything_else_is_no_identity(value: Any) -> None:
    with fails_with(ValueError, identity_message("id")) as caught:
        client_manifest._require_positive_identity(value, label="id")
    assert caught.error.__context__ is None


@pytest.mark.parametrize("value", [0, 1, 2**64, HUGE, Number(0), Number(5)])
def test_a_size_is_returned_as_it_came(value: int) -> None:
    assert client_manifest._require_nonnegative_size(value, relative_path="p") is value


@pytest.mark.parametrize("value", NO_INTEGERS)
def test_a_size_must_be_an_integer(value: Any) -> None:
    with fails_with(ValueError, size_message("p", "an integer")) as caught:
        client_manifest._require_nonnegative_size(value, relative_path="p")
    assert caught.error.__context__ is None


@pytest.mark.parametrize("value", [-1, -(2**64), Number(-1)])
def test_a_size_must_not_be_negative(value: int) -> None:
    with fails_with(ValueError, size_message("p", "non-negative")):
        client_manifest._require_nonnegative_size(value, relative_path="p")


@pytest.mark.parametrize("value", [DIGEST, Text(DIGEST), "0" * 64, "f" * 64])
def test_a_digest_is_returned_as_it_came(value: str) -> None:
    assert client_manifest._require_sha256(value, relative_path="p") is value


@pytest.mark.parametrize(
    "value",
    [
        None,
        5,
        DIGEST.encode(),
        [DIGEST],
        "",
        DIGEST[:-1],
        DIGEST + "0",
        DIGEST[:-1] + "A",
        DIGEST.upper(),
        DIGEST[:-1] + "g",
        DIGEST + "\n",
        DIGEST[:-1] + "\n",
        "\n" + DIGEST,
        " " + DIGEST[1:],
        DIGEST[:-1] + "\u0660",
        DIGEST[:-1] + "\uff11",
        DIGEST[:-1] + "\ud800",
        DIGEST[:-1] + "\x00",
        Text(DIGEST.upper()),
    ],
)
def test_anything_else_is_no_digest(value: Any) -> None:
    with fails_with(ValueError, digest_message("p")) as caught:
        client_manifest._require_sha256(value, relative_path="p")
    assert caught.error.__context__ is None


@pytest.mark.parametrize("text", AWKWARD_TEXTS)
def test_labels_and_paths_come_out_untouched(text: str) -> None:
    with fails_with(ValueError, identity_message(text)):
        client_manifest._require_positive_identity(None, label=text)
    with fails_with(ValueError, size_message(text, "an integer")):
        client_manifest._require_nonnegative_size(None, relative_path=text)
    with fails_with(ValueError, size_message(text, "non-negative")):
        client_manifest._require_nonnegative_size(-1, relative_path=text)
    with fails_with(ValueError, digest_message(text)):
        client_manifest._require_sha256(None, relative_path=text)


def test_labels_and_paths_are_keywords_without_default() -> None:
    requirements: list[tuple[Callable[..., object], object]] = [
        (client_manifest._require_positive_identity, 1),
        (client_manifest._require_nonnegative_size, 1),
        (client_manifest._require_sha256, DIGEST),
    ]
    for function, value in requirements:
        with pytest.raises(TypeError):
            function(value)
        with pytest.raises(TypeError):
            function(value, "p")


def test_an_integer_that_refuses_comparison_passes_its_own_failure() -> None:
    with pytest.raises(LookupError, match="no comparison"):
        client_manifest._require_positive_identity(Refusing(5), label="id")
    with pytest.raises(LookupError, match="no comparison"):
        client_manifest._require_nonnegative_size(Refusing(5), relative_path="p")


@given(st.integers())
def test_the_sign_alone_decides_for_integers(value: int) -> None:
    if value > 0:
        assert client_manifest._require_positive_identity(value, label="id") == value
    else:
        with fails_with(ValueError, identity_message("id")):
            client_manifest._require_positive_identity(value, label="id")
    if value >= 0:
        assert client_manifest._require_nonnegative_size(value, relative_path="p") == value
    else:
        with fails_with(ValueError, size_message("p", "non-negative")):
            client_manifest._require_nonnegative_size(value, relative_path="p")


def digest_is_accepted(value: str) -> bool:
    try:
        return bool(client_manifest._require_sha256(value, relative_path="p") is value)
    except ValueError as error:
        assert str(error) == digest_message("p")
        return False


@given(
    st.one_of(
        st.text(),
        st.text(alphabet="0123456789abcdef", min_size=62, max_size=66),
        st.text(alphabet="0123456789abcdefABCDEFg\n \u0661", min_size=64, max_size=65),
        st.text(alphabet="0123456789abcdef", min_size=64, max_size=64),
    )
)
def test_an_equal_pattern_put_in_the_module_judges_alike(value: str) -> None:
    own = digest_is_accepted(value)
    assert own == (len(value) == 64 and set(value) <= set("0123456789abcdef"))
    equal = re.compile(client_manifest._SHA256_RE.pattern, re.ASCII | re.DOTALL)
    with pytest.MonkeyPatch.context() as patch:
        patch.setattr(client_manifest, "_SHA256_RE", equal)
        assert digest_is_accepted(value) == own


def test_another_pattern_put_in_the_module_decides(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(client_manifest, "_SHA256_RE", re.compile("[xy]+"))
    assert client_manifest._require_sha256("xyx", relative_path="p") == "xyx"
    with fails_with(ValueError, digest_message("p")):
        client_manifest._require_sha256(DIGEST, relative_path="p")
    with fails_with(ValueError, digest_message("p")):
        client_manifest._require_sha256("xyx!", relative_path="p")


def test_a_pattern_that_fails_passes_its_own_failure(monkeypatch: pytest.MonkeyPatch) -> None:
    class Broken:
        def fullmatch(self, value: str) -> None:
            raise LookupError(value)

    monkeypatch.setattr(client_manifest, "_SHA256_RE", Broken())
    with pytest.raises(LookupError, match=DIGEST):
        client_manifest._require_sha256(DIGEST, relative_path="p")
    with fails_with(ValueError, digest_message("p")):
        client_manifest._require_sha256(None, relative_path="p")
