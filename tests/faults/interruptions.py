"""A signal that interrupts calls, and a handler that counts it and can raise."""

from __future__ import annotations

import signal
from collections.abc import Iterator
from contextlib import contextmanager

SIGNAL = signal.SIGUSR1


class Stop(Exception):
    """What a handler raises to end the call that it interrupted."""


class Handler:
    """Counts the signals, and raises `raises` if it has been given."""

    def __init__(self) -> None:
        self.signals = 0
        self.raises: BaseException | None = None

    def __call__(self, number: int, frame: object) -> None:
        self.signals += 1
        if self.raises is not None:
            raise self.raises


@contextmanager
def handled() -> Iterator[Handler]:
    """The signal goes to a handler of its own meanwhile."""
    handler = Handler()
    previous = signal.signal(SIGNAL, handler)
    try:
        yield handler
    finally:
        signal.signal(SIGNAL, previous)
