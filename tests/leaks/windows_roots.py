"""Leak scenarios of a root for Windows on a volume in memory: each operation, its ends, its steps.

Each act has a volume of its own, and leaves no handle of it open.
"""

from __future__ import annotations

from collections.abc import Callable, Iterator
from contextlib import contextmanager
from typing import Any

from brindlefen.distribution import client_manifest

from leaks.scenarios import Act, Ground, Own, Scenario, overriding_class
from windows.substitute import SubstituteBoundary
from windows.volume import DIRECTORY, DIRECTORY_REPARSE, FILE_REPARSE, Content, Volume

ROUTES: dict[str, Callable[[], Any]] = {
    "plain": lambda: client_manifest._WindowsPinnedRoot,
    "overridden": lambda: overriding_class(client_manifest._WindowsPinnedRoot),
}

FILE = "sub/inner.bin"
TREE: dict[str, Content] = {
    "data/sub/inner.bin": b"what lies there before",
    "data/sub/deep/leaf.tmp": b"",
    "data/other.bin": b"other",
    "junctions/junction": DIRECTORY_REPARSE,
    "junctions/link": FILE_REPARSE,
    "empty": DIRECTORY,
}

# What is done with a root that is pinned at "data", over its boundary.
Work = Callable[[Any, SubstituteBoundary], object]


@contextmanager
def fresh_boundary() -> Iterator[SubstituteBoundary]:
    """A boundary over a volume of its own, which has to end without handles."""
    volume = Volume()
    volume.plant(TREE)
    try:
        yield SubstituteBoundary(volume)
        assert not volume.open_handles and not volume.misuse
    finally:
        volume.dispose()


def worked(root_class: Any, boundary: SubstituteBoundary, work: Work, path: str) -> None:
    """Pins a root, does the work, and closes the root without a proof."""
    root = root_class(path, _boundary=boundary)
    try:
        work(root, boundary)
    finally:
        root.close()


def _working(work: Work, path: str = "C:\\data") -> Act:
    def act(ground: Ground) -> None:
        failed = None
        with fresh_boundary() as boundary:
            try:
                worked(ground.root_class, boundary, work, path)
            except Exception as error:
                failed = error
        if failed is not None:
            # Without the frames that it came by, which hold the error themselves.
            raise failed.with_traceback(None)

    return act


def _nothing(root: Any, boundary: SubstituteBoundary) -> None:
    """Pins the root, and no more."""


def _on_root(operate: Callable[[Any], object]) -> Work:
    return lambda root, boundary: operate(root)


# --- Each operation, done well: what fails at each of its steps, too, leaves nothing behind


def _contained(root: Any) -> None:
    with root.open_contained_root("sub", label="sub") as child:
        child.open_contained_root("deep", label="deep").close()


def _stream(root: Any) -> None:
    with root.open_regular_file_for_read(FILE, label="file") as file:
        identity = root.hash_open_regular_file(file, FILE, label="file")
        root.assert_open_regular_file_identity(file, FILE, label="file", identity=identity)


def _update(root: Any) -> None:
    with root.open_regular_file_for_update(FILE, create=True) as file:
        file.write(b"more")
    root.replace_regular_file(FILE, "new/replaced.bin")


def _move(root: Any, boundary: SubstituteBoundary) -> None:
    with type(root)("C:\\empty", _boundary=boundary) as other:
        root.move_regular_file_to(FILE, other, "new/moved.bin")


def _by_prefix(root: Any) -> None:
    root.remove_regular_files_in_prefixes(("sub",), preserve_relative_paths={FILE})


OPERATIONS: dict[str, Work] = {
    "a block": _on_root(lambda root: root.__enter__().__exit__(None, None, None)),
    "contained roots": _on_root(_contained),
    "read": _on_root(lambda root: root.read_regular_file(FILE, label="file")),
    "stream": _on_root(_stream),
    "write": _on_root(lambda root: root.write_atomic("new/leaf", b"new", allow_replace=False)),
    "write over": _on_root(lambda root: root.write_atomic(FILE, b"new", allow_replace=True)),
    "update and replace": _on_root(_update),
    "move": _move,
    "remove": _on_root(lambda root: root.remove_regular_file(FILE, missing_ok=False)),
    "clean by suffix": _on_root(
        lambda root: root.remove_regular_files_with_suffix(".tmp", preserve_relative_paths=())
    ),
    "clean by prefix": _on_root(_by_prefix),
    "list": _on_root(lambda root: root.list_directory_names()),
    "make directories": _on_root(lambda root: root.ensure_directory("new/deep")),
    "remove a tree": _on_root(lambda root: root.remove_directory_tree("sub", missing_ok=False)),
}

# --- Ends that are no failing call


def _read(path: Any) -> Work:
    return _on_root(lambda root: root.read_regular_file(path, label="file"))


def _write(path: Any, payload: Any = b"new", *, allow_replace: Any = False) -> Work:
    return _on_root(lambda root: root.write_atomic(path, payload, allow_replace=allow_replace))


def _answered(name: str, nth: int, answer: object, work: Work) -> Work:
    """The work, while one call of the boundary gives something that no boundary should."""

    def act(root: Any, boundary: SubstituteBoundary) -> None:
        boundary.hook(name, nth, returns=answer)
        work(root, boundary)

    return act


def _raised(name: str, nth: int, work: Work) -> Work:
    def act(root: Any, boundary: SubstituteBoundary) -> None:
        boundary.hook(name, nth, raises=Own(name))
        work(root, boundary)

    return act


def _closed(root: Any, boundary: SubstituteBoundary) -> None:
    root.close()
    root.read_regular_file(FILE, label="file")


ENDS: dict[str, tuple[Work, type[BaseException] | None]] = {
    "a closed root": (_closed, RuntimeError),
    "read no text": (_read(None), TypeError),
    "read what is missing": (_read("sub/none"), FileNotFoundError),
    "read beneath a file": (_read("other.bin/leaf"), ValueError),
    "write no bytes": (_write("leaf", "text"), TypeError),
    "write what exists": (_write(FILE), FileExistsError),
    "write over a directory": (_write("sub", allow_replace=True), ValueError),
    "write, another file at the name": (
        _answered("identity", 2, (0, b"another"), _write("leaf")),
        ValueError,
    ),
    "write, the file object fails": (_raised("file_object", 1, _write("leaf")), Own),
    "write, the proof fails": (_raised("open_volume", 1, _write("leaf")), Own),
    "update what is missing": (
        _on_root(lambda root: root.open_regular_file_for_update("none", create=False)),
        ValueError,
    ),
    "remove what is missing": (
        _on_root(lambda root: root.remove_regular_file("none", missing_ok=True)),
        None,
    ),
    "move to no root": (
        _on_root(lambda root: root.move_regular_file_to(FILE, "C:\\empty", "leaf")),
        TypeError,
    ),
    "clean by no suffix": (
        _on_root(
            lambda root: root.remove_regular_files_with_suffix("", preserve_relative_paths=())
        ),
        ValueError,
    ),
    "a kind that fails": (_raised("kind", 1, OPERATIONS["remove a tree"]), Own),
}

SCENARIOS: dict[str, Scenario] = {
    **{name: Scenario(_working(work)) for name, work in OPERATIONS.items()},
    **{name: Scenario(_working(work), failure) for name, (work, failure) in ENDS.items()},
    "pin what is missing": Scenario(_working(_nothing, "C:\\none\\deep"), FileNotFoundError),
    "pin a server's": Scenario(_working(_nothing, "\\\\server\\share"), ValueError),
    "pin beneath a junction": Scenario(_working(_nothing, "C:\\junctions\\junction"), ValueError),
}


# --- A failure of each call


def steps_of(root_class: Any, work: Work) -> list[tuple[str, int]]:
    """The calls of the boundary that pinning, the work and closing make: each with its number."""
    with fresh_boundary() as boundary:
        worked(root_class, boundary, work, "C:\\data")
        names = boundary.names_called()
    return [(name, names[: place + 1].count(name)) for place, name in enumerate(names)]


def fail_at(root_class: Any, work: Work, name: str, nth: int) -> None:
    """Does the work once with one failing call; how it must end is told elsewhere."""
    with fresh_boundary() as boundary:
        boundary.hook(name, nth, raises=OSError(5, "no such luck"))
        try:
            worked(root_class, boundary, work, "C:\\data")
        except (OSError, ValueError):
            pass
        assert not boundary.unspent_hooks
