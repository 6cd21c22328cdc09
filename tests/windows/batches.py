"""Makes the buffers of a directory listing, honest or not, and the call that serves them."""

from __future__ import annotations

import ctypes
import struct
from collections.abc import Callable
from typing import Any

from windows.foreign import address_of, plain, pointed
from windows.kernel_numbers import STATUS_NO_MORE_FILES

BUFFER = 65536


def record(name: bytes, *, step: int | None = None, length: int | None = None) -> bytes:
    """One record; `step` leads to the next, by default just behind this one, padded to 8."""
    size = (12 + len(name) + 7) // 8 * 8
    step = size if step is None else step
    length = len(name) if length is None else length
    return struct.pack("<III", step, 0xDEADBEEF, length) + name.ljust(size - 12, b"\xee")


def batch(*names: str) -> bytes:
    """The records of these names; the last one leads nowhere."""
    encoded = [name.encode("utf-16-le") for name in names]
    return b"".join(
        record(name, step=0 if place == len(encoded) else None)
        for place, name in enumerate(encoded, 1)
    )


def serving(
    *batches: bytes | int, used: int | None = None, restarts: list[bool] | None = None
) -> Callable[..., int]:
    """A listing that answers with each batch, or status, in turn; then with no more files."""
    waiting = [*batches, STATUS_NO_MORE_FILES]

    def perform(*arguments: Any) -> int:
        if restarts is not None:
            restarts.append(bool(plain(arguments[10])))
        assert waiting, "a listing that goes on behind its end"
        answer = waiting.pop(0)
        if isinstance(answer, int):
            return answer
        ctypes.memmove(address_of(arguments[5]), answer[:BUFFER], min(len(answer), BUFFER))
        pointed(arguments[4]).Information = len(answer) if used is None else used
        return 0

    return perform
