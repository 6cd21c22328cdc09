"""Values, exceptions and helpers for boundaries and callers that mean no good."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

from brindlefen.distribution import client_manifest
from windows.frame_steps import CASES
from windows.substitute import SubstituteBoundary

Root: Any = client_manifest._WindowsPinnedRoot


class Own(Exception):
    """Raised by the hostile values, and of no class that anything else looks for."""


class Ending(BaseException):
    """No failure but an end, as the host asks for one."""


def raise_own(*arguments: object, **keywords: object) -> Any:
    raise Own("mine")


class Raising:
    """Raises at every question that a value can be asked."""

    __bool__ = __eq__ = __ne__ = __hash__ = __len__ = __iter__ = __index__ = __int__ = raise_own
    __str__ = __repr__ = __format__ = __getitem__ = __call__ = raise_own


class RaisingText(str):
    __bool__ = __eq__ = __ne__ = __len__ = __iter__ = __str__ = __format__ = raise_own
    __hash__ = raise_own
    __getitem__ = split = encode = startswith = raise_own


class RaisingPair(tuple[Any, ...]):
    __eq__ = __ne__ = __len__ = __iter__ = __getitem__ = raise_own
    __hash__ = raise_own


class RaisingInt(int):
    __bool__ = __eq__ = __ne__ = __index__ = __int__ = __hash__ = raise_own


ODD: list[Any] = [
    None,
    "text",
    b"bytes",
    -1,
    0,
    True,
    2**31,
    2**64,
    -(2**200),
    1.5,
    (),
    (1, b"x", None),
    {},
    object(),
    type,
    Raising(),
    RaisingText("directory"),
    RaisingText("regular"),
    RaisingPair((1, b"x")),
    RaisingInt(4),
]


def pinned(boundary: SubstituteBoundary) -> Any:
    root = Root("C:\\data", _boundary=boundary)
    root.sub = boundary.open_directory(root._descriptor, "sub", create=False)
    root.deep = boundary.open_directory(root.sub, "deep", create=False)
    return root


def survive(run: Callable[[], object]) -> BaseException | None:
    """What the operation raises, if it does: reaching the next line is the proof."""
    try:
        run()
    except Exception as error:
        return error
    return None


def hook_at(boundary: SubstituteBoundary, name: str, position: int, **how: Any) -> None:
    names = [step.name for step in CASES[name].steps]
    boundary.hook(names[position], names[: position + 1].count(names[position]), **how)
