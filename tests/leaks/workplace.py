"""Gives each call that may change the disk the same small tree to work on, as if it were new."""

from __future__ import annotations

import os
import shutil
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from functools import cache
from pathlib import Path
from typing import Any

from leaks.scenarios import Act, Ground, Own, Scenario, bound, pinned

FILE = "sub/inner.bin"
CONTENT = b"what lies there before"


@contextmanager
def workplace(ground: Ground) -> Iterator[Path]:
    """One entry of each kind, at the same paths each time; it is made anew once it was changed."""
    place = ground.tree.with_name("work")
    if not place.exists():
        _lay_out(place)
    before = _look(place)
    try:
        yield place
    finally:
        if _look(place) != before:
            shutil.rmtree(place)


def _lay_out(place: Path) -> None:
    (place / "sub" / "deep").mkdir(parents=True)
    (place / FILE).write_bytes(CONTENT)
    (place / "other.bin").touch()
    (place / "link").symlink_to(FILE)
    (place / "linked").symlink_to("sub")
    os.mkfifo(place / "fifo")


def _look(place: Path) -> dict[str, tuple[int, int]]:
    """The inode and size of all that lies there."""
    paths = [
        os.path.join(directory, name)
        for directory, directories, files in os.walk(place)
        for name in (*directories, *files)
    ]
    looks = {path: os.lstat(path) for path in paths}
    return {path: (look.st_ino, look.st_size) for path, look in looks.items()}


# What a scenario does with a root that is pinned at a fresh workplace.
Work = Callable[[Any], object]
# The ends of one operation: for each a name, the work, and the failure if it is one.
Ends = list[tuple[str, Work, type[BaseException] | None]]


def working(work: Work) -> Act:
    """The scenario that does `work` on a root of its own."""

    def act(ground: Ground) -> None:
        with workplace(ground) as place, pinned(ground, place) as root:
            work(root)

    return act


def closed(work: Work) -> Work:
    """The same work on a root that has been closed."""

    def after_closing(root: Any) -> None:
        root.close()
        work(root)

    return after_closing


def scenarios_of(ends: dict[str, Ends]) -> dict[str, Scenario]:
    """A scenario for each end of each operation."""
    return {
        f"{operation}, {name}": Scenario(working(work), failure)
        for operation, cases in ends.items()
        for name, work, failure in cases
    }


def no_way(operate: Callable[[Any], Work], side: str = "") -> Ends:
    """How a path can be unfit to be walked to, whatever is to be done at its end."""
    return [
        (f"{side}no text", operate(None), TypeError),
        (f"{side}beneath a link", operate("linked/leaf"), ValueError),
        (f"{side}no bytes for a parent", operate("\ud800/leaf"), UnicodeEncodeError),
    ]


# --- A hand in between the steps


def swap(path: Path) -> None:
    """Puts another file at the path."""
    path.rename(path.with_name("swapped"))
    path.touch()


def judging(root: Any, *actions: Callable[[], object]) -> None:
    """Makes the root's looks at a leaf do one of the actions each, in their order, and pass."""
    left = list(actions)
    root._assert_replaceable_leaf = lambda *_, **__: left.pop(0)()


def fail() -> None:
    raise Own("no judgement")


# --- Functions that pin their roots for themselves

# What a scenario does with the path of a fresh workplace.
OnPlace = Callable[[Path], object]
# How a scenario comes from the class of its route to the class that the module is to use.
Choice = Callable[[Any], Any]


def choosing(choice: Choice, act: OnPlace) -> Act:
    """The scenario of a function that pins its roots for itself, by the chosen class."""

    def run(ground: Ground) -> None:
        with workplace(ground) as place, bound("PinnedRoot", choice(ground.root_class)):
            act(place)

    return run


def the_routes_own(root_class: Any) -> Any:
    """The class of the route as it is."""
    return root_class


@cache
def unproved(root_class: Any) -> Any:
    """A class of roots that cannot be proved."""

    def fail(root: Any) -> None:
        raise Own("no proof")

    return type("Unproved", (root_class,), {"assert_root_unchanged": fail})
