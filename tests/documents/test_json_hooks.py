"""Proves the two hooks that drive the host's parser, called by themselves."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import pytest
from brindlefen.distribution import client_manifest
from hypothesis import given
from hypothesis import strategies as st

from support.failures import fails_with

MARKER = client_manifest._DuplicateJsonObjectKeyError
hook: Callable[[Any], dict[Any, Any]] = client_manifest._object_without_duplicate_keys
reject = client_manifest._reject_nonfinite_json_constant


class Boom(Exception):
    """Raised by the hostile keys below."""


class Key:
    """A key whose hash is fixed, and whose comparison gives `answer` or raises it."""

    def __init__(self, answer: object) -> None:
        self.answer = answer

    def __hash__(self) -> int:
        return 7

    def __eq__(self, other: object) -> Any:
        if isinstance(self.answer, Exception):
            raise self.answer
        return self.answer


class Unhashable:
    """A key that refuses to be hashed."""

    def __hash__(self) -> int:
        raise Boom("no hash")


def test_pairs_become_a_new_dict_in_their_order() -> None:
    value = object()
    pairs = [("b", 1), ("a", value)]
    document = hook(pairs)
    assert type(document) is dict
    assert list(document.items()) == pairs
    assert document["a"] is value
    assert hook(pairs) is not document


def test_no_pairs_become_an_empty_dict() -> None:
    assert hook([]) == {}


@pytest.mark.parametrize("key", ["", "a", "\ud800", "{}"])
def test_a_repeated_key_is_carried_by_the_marker(key: str) -> None:
    with fails_with(MARKER, key) as caught:
        hook([(key, 1), ("other", 2), (key, 1)])
    assert caught.error.args == (key,)


def test_the_first_repeat_ends_the_walk() -> None:
    with fails_with(MARKER, "a"):
        hook([("a", 1), ("b", 2), ("a", 3), ("b", 4)])
    with fails_with(MARKER, "a"):
        hook([("a", 1), ("a", 2), "no pair at all", None])


def test_the_marker_carries_the_later_of_two_equal_keys() -> None:
    with fails_with(MARKER, "True") as caught:
        hook([(1, "one"), (True, "two")])
    assert caught.error.args[0] is True


@given(st.lists(st.tuples(st.text(max_size=2), st.integers()), max_size=8))
def test_pairs_are_judged_as_a_count_of_their_keys_says(pairs: list[tuple[str, int]]) -> None:
    keys = [key for key, _ in pairs]
    repeats = [key for place, key in enumerate(keys) if key in keys[:place]]
    if repeats:
        with fails_with(MARKER, repeats[0]):
            hook(pairs)
    else:
        assert list(hook(pairs).items()) == pairs


@pytest.mark.parametrize("pairs", [None, 1, object()])
def test_what_cannot_be_walked_is_the_hosts_failure(pairs: object) -> None:
    with fails_with(TypeError, None):
        hook(pairs)


@pytest.mark.parametrize("pair", [1, None, object()])
def test_what_is_no_pair_is_the_hosts_failure(pair: object) -> None:
    with fails_with(TypeError, None):
        hook([("a", 1), pair])


@pytest.mark.parametrize("pair", [(), ("a",), ("a", 1, 2), [], ["a", 1, 2, 3], "abc"])
def test_a_pair_of_another_length_is_the_hosts_failure(pair: object) -> None:
    with fails_with(ValueError, None):
        hook([("a", 1), pair])


@pytest.mark.parametrize("key", [[], {}, set(), bytearray()])
def test_a_key_that_cannot_be_hashed_is_the_hosts_failure(key: object) -> None:
    with fails_with(TypeError, f"unhashable type: '{type(key).__name__}'"):
        hook([(key, 1)])


def test_a_hash_that_raises_passes() -> None:
    with fails_with(Boom, "no hash"):
        hook([(Unhashable(), 1)])


def test_a_comparison_that_raises_passes() -> None:
    with fails_with(Boom, "no comparison"):
        hook([(Key(Boom("no comparison")), 1), (Key(Boom("no comparison")), 2)])


def test_a_key_is_known_by_identity_before_comparison() -> None:
    key = Key(Boom("not asked"))
    with fails_with(MARKER, None) as caught:
        hook([(key, 1), (key, 2)])
    assert caught.error.args[0] is key


def test_keys_that_compare_unequal_are_two_keys() -> None:
    assert len(hook([(Key(False), 1), (Key(False), 2)])) == 2


def test_a_key_that_empties_the_list_ends_the_walk() -> None:
    pairs: list[tuple[object, int]] = []

    class Emptying:
        """Drops all pairs, its own among them, when it is first hashed."""

        def __hash__(self) -> int:
            pairs.clear()
            return 1

    pairs.extend([(Emptying(), 1), ("never", 2)])
    document = hook(pairs)
    assert list(document.values()) == [1]


@pytest.mark.parametrize("constant", ["NaN", "Infinity", "-Infinity", "", "{}", "%s", "\ud800"])
def test_a_constant_is_named_as_written(constant: str) -> None:
    text = f"non-finite JSON constant is forbidden: {constant}"
    with fails_with(client_manifest.StrictJsonError, text) as caught:
        reject(constant)
    assert caught.error.args == (text,)
