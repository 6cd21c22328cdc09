"""Stands in for the module's `PinnedRoot`, and notes each step that a function takes with it."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any, NamedTuple

import pytest

from brindlefen.distribution import client_manifest

NO_FAILURE = (None, None, None)


class Step(NamedTuple):
    """One call on the root with this number; the first root that was pinned has 0."""

    root: int
    name: str
    args: tuple[Any, ...] = ()
    keywords: dict[str, Any] = {}


class Records:
    """The steps on all roots, in order, and what each step gives or raises."""

    def __init__(self) -> None:
        self.steps: list[Step] = []
        self.roots: list[StandInRoot] = []
        self.results: dict[tuple[int, str], Any] = {}
        self.actions: dict[tuple[int, str], Callable[..., Any]] = {}
        self.failing: dict[tuple[int, str], BaseException] = {}

    def note(self, root: int, name: str, *args: Any, **keywords: Any) -> Any:
        self.steps.append(Step(root, name, args, keywords))
        if (root, name) in self.failing:
            raise self.failing[root, name]
        if (root, name) in self.actions:
            return self.actions[root, name](*args, **keywords)
        return self.results.get((root, name))

    def pin(self, *args: Any, **keywords: Any) -> StandInRoot:
        number = len(self.roots)
        self.note(number, "pin", *args, **keywords)
        self.roots.append(StandInRoot(self, number))
        return self.roots[number]

    def names(self, root: int = 0) -> list[str]:
        return [step.name for step in self.steps if step.root == root]

    def order(self) -> list[tuple[int, str]]:
        return [(step.root, step.name) for step in self.steps]

    def exits(self) -> list[Step]:
        return [step for step in self.steps if step.name == "exit"]


class StandInRoot:
    """A root with every operation; none of them touches the disk."""

    def __init__(self, records: Records, number: int) -> None:
        self._records = records
        self._number = number

    def __enter__(self) -> StandInRoot:
        self._records.note(self._number, "enter")
        return self

    def __exit__(self, *details: Any) -> None:
        self._records.note(self._number, "exit", *details)

    @property
    def path(self) -> Any:
        """Its reading is a step too; without a result it is a path of its own."""
        found = self._records.note(self._number, "path")
        return "/pinned/here" if found is None else found

    def assert_root_unchanged(self, *args: Any, **keywords: Any) -> Any:
        return self._records.note(self._number, "prove", *args, **keywords)

    def __getattr__(self, name: str) -> Callable[..., Any]:
        if name.startswith("__"):
            raise AttributeError(name)

        def operation(*args: Any, **keywords: Any) -> Any:
            return self._records.note(self._number, name, *args, **keywords)

        return operation


def stand_in_roots(monkeypatch: pytest.MonkeyPatch) -> Records:
    """Puts the recording roots in the place of the module's class."""
    records = Records()
    monkeypatch.setattr(client_manifest, "PinnedRoot", records.pin)
    return records
