"""Holds a failure against its exact class, text and chain, as callers rely on all of them."""

from __future__ import annotations

from collections.abc import Iterator
from contextlib import contextmanager


class Caught:
    """The exception that a `fails_with` block met, for further looks at its fields."""

    error: BaseException


def assert_chained(error: BaseException, cause: type[BaseException] | None) -> None:
    """Requires the chain that `raise ... from` leaves, or that a plain `raise` leaves."""
    if cause is None:
        assert error.__cause__ is None
        assert error.__suppress_context__ is False
    else:
        assert error.__cause__ is not None, "the failure has lost its cause"
        assert type(error.__cause__) is cause, repr(error.__cause__)
        assert error.__suppress_context__ is True
        assert error.__context__ is error.__cause__


@contextmanager
def fails_with(
    kind: type[BaseException],
    text: str | None,
    *,
    cause: type[BaseException] | None = None,
) -> Iterator[Caught]:
    """Requires the block to raise exactly `kind` (no subclass) with exactly `text`.

    `cause` is the exact class of `__cause__`, or None for a failure without one. `text` of
    None leaves the words to the host.
    """
    caught = Caught()
    try:
        yield caught
    except BaseException as error:
        if type(error) is not kind:
            raise
        caught.error = error
        if text is not None:
            assert str(error) == text
        assert_chained(error, cause)
    else:
        raise AssertionError(f"{kind.__name__} was not raised: {text}")
