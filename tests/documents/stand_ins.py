"""Gives what the override tests put in the place of the module's own names."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any


class Own(ValueError):
    """A caller's own failure."""


def passing(function: Callable[..., Any], calls: list[Any]) -> Callable[..., Any]:
    """A stand-in that notes its call and does what the original does."""

    def stand_in(*args: Any, **kwargs: Any) -> Any:
        calls.append((args, kwargs))
        return function(*args, **kwargs)

    return stand_in


def giving(value: object, calls: list[Any]) -> Callable[..., Any]:
    """A stand-in that notes its call and gives `value`, whatever it is asked."""

    def stand_in(*args: Any, **kwargs: Any) -> Any:
        calls.append((args, kwargs))
        return value

    return stand_in
