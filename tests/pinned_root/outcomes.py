"""Brings a result or a failure into a form that can be compared, cause chain included."""

from __future__ import annotations

from collections.abc import Callable
from typing import NamedTuple


class Failure(NamedTuple):
    """All that a caller can see of one exception and of what it replaced."""

    kind: type[BaseException]
    text: str
    errno: int | None
    filename: object
    suppress_context: bool
    cause: Failure | None
    context: Failure | None


class Value(NamedTuple):
    """A call that ended well, with its result."""

    value: object


def failure_of(error: BaseException | None) -> Failure | None:
    if error is None:
        return None
    return Failure(
        type(error),
        str(error),
        getattr(error, "errno", None),
        getattr(error, "filename", None),
        error.__suppress_context__,
        failure_of(error.__cause__),
        failure_of(error.__context__),
    )


def outcome_of(action: Callable[[], object]) -> Value | Failure:
    """Runs `action` and tells how it ended; exits and interrupts are not caught."""
    try:
        return Value(action())
    except Exception as error:
        failure = failure_of(error)
        assert failure is not None
        return failure
