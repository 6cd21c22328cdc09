"""Puts a valid distribution on disk, and lets something happen to it in the middle of a load."""

from __future__ import annotations

from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.distribution import Distribution, valid_distribution

Act = Callable[[], object]
Inject = Callable[..., None]


@pytest.fixture
def valid() -> Distribution:
    return valid_distribution()


@pytest.fixture
def root(valid: Distribution, tmp_path: Path) -> Path:
    return valid.write(tmp_path / "root")


@pytest.fixture
def inject(monkeypatch: pytest.MonkeyPatch) -> Iterator[Inject]:
    """Lets the roots of the module act once, before or after one of their operations.

    `at` is the path for which the operation must be called, or None for its first call. The
    test fails if an act was never reached.
    """
    pending: list[str] = []

    def add(operation: str, act: Act, *, at: str | None = None, before: bool = False) -> None:
        base = client_manifest.PinnedRoot
        original = getattr(base, operation)
        occasion = f"{operation} {at}"
        pending.append(occasion)

        def operate(self: Any, *arguments: Any, **keywords: Any) -> Any:
            due = occasion in pending and (at is None or arguments[0] == at)
            if due:
                pending.remove(occasion)
            if due and before:
                act()
            result = original(self, *arguments, **keywords)
            if due and not before:
                act()
            return result

        changed = type("Root", (base,), {operation: operate})
        monkeypatch.setattr(client_manifest, "PinnedRoot", changed)

    yield add
    assert pending == []
