"""Lets a test step in before, after or in place of the n-th call of an operation from now on."""

from __future__ import annotations

from collections.abc import Callable
from dataclasses import dataclass
from typing import Any

NOTHING: Any = object()


@dataclass
class Hook:
    """One step of a test's own, spent once its call has come."""

    kind: str
    remaining: int
    before: Callable[[], object] | None
    after: Callable[[], object] | None
    failure: int | BaseException | type[BaseException] | None
    returns: Any


class Hooks:
    """The hooks that wait, and which of them belong to the call that begins."""

    def __init__(self) -> None:
        self._waiting: list[Hook] = []

    def add(
        self,
        kind: str,
        nth: int,
        *,
        before: Callable[[], object] | None = None,
        after: Callable[[], object] | None = None,
        failure: int | BaseException | type[BaseException] | None = None,
        returns: Any = NOTHING,
    ) -> None:
        assert nth >= 1, "calls are counted from 1"
        self._waiting.append(Hook(kind, nth, before, after, failure, returns))

    def due(self, kind: str) -> list[Hook]:
        """Counts one call of `kind`, and takes out the hooks that waited for exactly it."""
        due = []
        for hook in self._waiting:
            if hook.kind == kind:
                hook.remaining -= 1
                if hook.remaining == 0:
                    due.append(hook)
        self._waiting = [hook for hook in self._waiting if hook.remaining > 0]
        return due

    @property
    def unspent(self) -> list[str]:
        """The operations for which a hook still waits, so a test can see that all were met."""
        return [hook.kind for hook in self._waiting]
