"""Values that raise whenever they are asked, with one exception class of their own."""

from __future__ import annotations

from typing import Any


class Own(Exception):
    """What the hostile values raise: it must come out as it went in."""


def raise_own(*arguments: object, **keywords: object) -> Any:
    raise Own("mine")


class Index:
    """Gives `value` where an integer is asked for; `Own` as the value raises instead."""

    def __init__(self, value: object) -> None:
        self.value = value

    def __index__(self) -> Any:
        return raise_own() if self.value is Own else self.value
