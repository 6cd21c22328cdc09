"""The frame of a leak scenario: one call on prepared ground, and how it must end each time."""

from __future__ import annotations

from collections.abc import Callable, Iterator
from contextlib import contextmanager
from dataclasses import dataclass
from pathlib import Path
from typing import Any

from brindlefen.distribution import client_manifest


class Own(Exception):
    """What the scenarios' own hostile objects raise."""


class Hostile:
    """An object that fails in whatever way it is used."""

    def __format__(self, template: str) -> str:
        raise Own("no text")

    def __eq__(self, other: object) -> bool:
        raise Own("no comparison")

    def __hash__(self) -> int:
        raise Own("no hash")

    def __bool__(self) -> bool:
        raise Own("no truth")

    def __getattr__(self, name: str) -> Any:
        raise Own(name)


@dataclass(frozen=True)
class Ground:
    """The root class to work with, and the directories that a suite has prepared."""

    root_class: Any
    tree: Path
    distribution: Path


Act = Callable[[Ground], object]


@dataclass(frozen=True)
class Scenario:
    """A call that returns, or that fails with exactly `failure`."""

    act: Act
    failure: type[BaseException] | None = None

    def run(self, ground: Ground) -> None:
        """Makes the call once; anything but the expected end is an error."""
        try:
            self.act(ground)
        except BaseException as error:
            if type(error) is not self.failure:
                raise
        else:
            assert self.failure is None, f"did not fail: {self.failure}"


@contextmanager
def pinned(ground: Ground, place: Path) -> Iterator[Any]:
    """A root that is closed without a proof, as some are closed already or moved away."""
    root = ground.root_class(place)
    try:
        yield root
    finally:
        root.close()


@contextmanager
def moved_away(tree: Path) -> Iterator[None]:
    """Leaves nothing at the place of a directory until the block ends."""
    aside = tree.rename(tree.with_name("aside"))
    try:
        yield
    finally:
        aside.rename(tree)


@contextmanager
def bound(name: str, value: object) -> Iterator[None]:
    """Gives a name of the module another value until the block ends."""
    bindings = vars(client_manifest)
    before = bindings[name]
    bindings[name] = value
    try:
        yield
    finally:
        bindings[name] = before


def _handing_on(base: Any, name: str) -> Callable[..., Any]:
    def operate(self: Any, *arguments: Any, **keywords: Any) -> Any:
        return getattr(base, name)(self, *arguments, **keywords)

    return operate


def overriding_class(base: Any) -> Any:
    """A root class that overrides each method of `base`, so that no direct route is left."""
    methods = [
        name
        for kind in base.__mro__[:-1]
        for name, value in vars(kind).items()
        if callable(value) and not isinstance(value, staticmethod | classmethod)
    ]
    return type("Overriding", (base,), {name: _handing_on(base, name) for name in methods})


ROUTES: dict[str, Callable[[], Any]] = {
    "direct": lambda: client_manifest.PinnedRoot,
    "overridden": lambda: overriding_class(client_manifest.PinnedRoot),
}
