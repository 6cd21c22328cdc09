"""Leak scenarios on a disk: every operation of a pinned root, and whole loads."""

from __future__ import annotations

import os
from collections.abc import Callable, Iterator
from contextlib import AbstractContextManager, ExitStack, contextmanager
from pathlib import Path
from typing import Any

from brindlefen.distribution import client_manifest

from leaks.scenarios import Act, Ground, Hostile, Own, Scenario, bound, moved_away, pinned
from support.distribution import SIGNAL_FILE, SIGNAL_PNL, valid_distribution

SCENARIOS: dict[str, Scenario] = {}

FILE = "sub/inner.bin"


def make_tree(tree: Path) -> Path:
    """One entry of each kind that the scenarios meet."""
    (tree / "sub" / "deep").mkdir(parents=True)
    (tree / FILE).write_bytes(bytes(range(256)) * 32)
    (tree / "empty").touch()
    (tree / "link").symlink_to(FILE)
    (tree / "linked").symlink_to("sub")
    return tree


def make_distribution(root: Path) -> Path:
    """A sound distribution; `broken` copies of it stand beside it, each broken in one place."""
    valid_distribution().write(root)
    for name, change in BROKEN.items():
        change(valid_distribution().write(_broken(root, name)))
    return root


def _broken(root: Path, name: str) -> Path:
    return root.with_name(f"broken: {name}")


def _scenario(
    name: str, failure: type[BaseException] | None = None
) -> Callable[[Act], Act]:
    def add(act: Act) -> Act:
        SCENARIOS[name] = Scenario(act, failure)
        return act

    return add


def _pinned(ground: Ground) -> AbstractContextManager[Any]:
    return pinned(ground, ground.tree)


def _on_root(operation: Callable[[Any], object]) -> Act:
    def act(ground: Ground) -> None:
        with _pinned(ground) as root:
            operation(root)

    return act


# --- The life of a root


@_scenario("pin and close")
def _pin(ground: Ground) -> None:
    ground.root_class(str(ground.tree)).close()


@_scenario("pin, close twice")
def _close_twice(ground: Ground) -> None:
    root = ground.root_class(ground.tree)
    root.close()
    root.close()


@_scenario("pin in a block")
def _block(ground: Ground) -> None:
    with ground.root_class(ground.tree):
        pass


@_scenario("fail in a block", Own)
def _failing_block(ground: Ground) -> None:
    with ground.root_class(ground.tree):
        raise Own("in the block")


@_scenario("move the root away in a block", ValueError)
def _moving_block(ground: Ground) -> None:
    with ExitStack() as back, ground.root_class(ground.tree):
        back.enter_context(moved_away(ground.tree))


@_scenario("replace the root in a block", ValueError)
def _replacing_block(ground: Ground) -> None:
    with ExitStack() as back, ground.root_class(ground.tree):
        back.enter_context(moved_away(ground.tree))
        ground.tree.mkdir()
        back.callback(ground.tree.rmdir)


@_scenario("pin and create")
def _create(ground: Ground) -> None:
    fresh = ground.tree / "fresh"
    with ground.root_class(fresh / "new", create=True):
        pass
    (fresh / "new").rmdir()
    fresh.rmdir()


@_scenario("a root in a cycle")
def _cycle(ground: Ground) -> None:
    root = ground.root_class(ground.tree)
    root.itself = root
    root.close()


@_scenario("initialised twice")
def _twice(ground: Ground) -> None:
    root = ground.root_class(ground.tree)
    first = root._descriptor
    root.__init__(ground.tree)
    os.close(first)
    root.close()


NO_ROOTS: list[tuple[str, str, type[BaseException]]] = [
    ("missing", "absent", FileNotFoundError),
    ("a link", "linked", ValueError),
    ("beneath a link", "linked/deep", ValueError),
    ("a file", FILE, ValueError),
    ("a name too long", "n" * 256, ValueError),
    ("a name that has no bytes", "\ud800", UnicodeEncodeError),
]
for name, path, kind in NO_ROOTS:

    def _refused(ground: Ground, path: str = path) -> None:
        ground.root_class(ground.tree / path)

    SCENARIOS[f"pin, {name}"] = Scenario(_refused, kind)
SCENARIOS["pin, no path"] = Scenario(lambda ground: ground.root_class(5), TypeError)
SCENARIOS["pin, hostile path"] = Scenario(lambda ground: ground.root_class(Hostile()), TypeError)


# --- One operation on a root, over paths of every kind

OPERATIONS: dict[str, Callable[[Any, Any], object]] = {
    "read": lambda root, path: root.read_regular_file(path, label="file"),
    "read with stat": lambda root, path: root.read_regular_file_with_stat(path, label="file"),
    "read if present": lambda root, path: root.read_regular_file_if_present(path, label="file"),
    "hash": lambda root, path: root.hash_regular_file(path, label="file"),
    "hash in small chunks": lambda root, path: root.hash_regular_file(
        path, label="file", chunk_bytes=1000
    ),
    "stat": lambda root, path: root.stat_regular_file(path, label="file"),
    "open": lambda root, path: root.open_regular_file_for_read(path, label="file").close(),
    "walk": lambda root, path: os.close(root._open_parent(path, label="file", create=False)[0]),
    "path proof": lambda root, path: root._assert_path_matches_regular_file(
        path, label="file", expected_stat=root.stat_regular_file(FILE, label="file")
    ),
}
PATHS: dict[str, tuple[Any, type[BaseException] | None]] = {
    "a file": (FILE, None),
    "no leaf": ("sub/deep/absent", FileNotFoundError),
    "no parent": ("absent/deep/leaf", FileNotFoundError),
    "a link": ("link", ValueError),
    "beneath a link": ("linked/inner.bin", ValueError),
    "beneath a file": ("empty/leaf", ValueError),
    "a directory": ("sub/deep", ValueError),
    "a name too long": ("n" * 256, ValueError),
    "a name that has no bytes": ("sub/\ud800", UnicodeEncodeError),
    "dots": ("sub/../empty", ValueError),
    "no text": (None, TypeError),
}
# Where an operation ends otherwise than most do. What is absent is an answer to one that asks; a
# walk judges no path and goes no further than the parent; to a proof a path that is gone has
# changed, and what the system refuses to look at is the system's to tell.
ENDINGS: dict[tuple[str, str], type[BaseException] | None] = {
    ("read if present", "no leaf"): None,
    ("read if present", "no parent"): None,
    ("walk", "no leaf"): None,
    ("walk", "a link"): None,
    ("walk", "a directory"): None,
    ("walk", "a name too long"): None,
    ("walk", "a name that has no bytes"): None,
    ("walk", "dots"): None,
    ("path proof", "no leaf"): ValueError,
    ("path proof", "a name too long"): OSError,
}

for name, operation in OPERATIONS.items():
    for place, (target, usual) in PATHS.items():

        def _over(
            ground: Ground, operation: Callable[[Any, Any], object] = operation, path: Any = target
        ) -> None:
            with _pinned(ground) as root:
                operation(root, path)

        SCENARIOS[f"{name}, {place}"] = Scenario(_over, ENDINGS.get((name, place), usual))

for name in ("read", "read if present", "hash", "stat", "open", "walk"):

    def _when_closed(
        ground: Ground, operation: Callable[[Any, Any], object] = OPERATIONS[name]
    ) -> None:
        root = ground.root_class(ground.tree)
        root.close()
        operation(root, FILE)

    SCENARIOS[f"{name}, closed"] = Scenario(_when_closed, RuntimeError)

for name in ("read", "read if present", "hash", "stat"):

    def _when_moved(
        ground: Ground, operation: Callable[[Any, Any], object] = OPERATIONS[name]
    ) -> None:
        with _pinned(ground) as root, moved_away(ground.tree):
            operation(root, FILE)

    SCENARIOS[f"{name}, root moved away"] = Scenario(_when_moved, ValueError)


@_scenario("prove the root")
@_on_root
def _proof(root: Any) -> None:
    root.assert_root_unchanged()


@_scenario("prove a closed root", RuntimeError)
@_on_root
def _closed_proof(root: Any) -> None:
    root.close()
    root.assert_root_unchanged()


@_scenario("a label that fails", Own)
@_on_root
def _hostile_label(root: Any) -> None:
    root.read_regular_file("absent", label=Hostile())


@_scenario("no chunk", ValueError)
@_on_root
def _no_chunk(root: Any) -> None:
    root.hash_regular_file(FILE, label="file", chunk_bytes=0)


@_scenario("walk and create")
def _walk_and_create(ground: Ground) -> None:
    with _pinned(ground) as root:
        parent, _ = root._open_parent("fresh/new/leaf", label="file", create=True)
        os.close(parent)
    (ground.tree / "fresh" / "new").rmdir()
    (ground.tree / "fresh").rmdir()


LEAVES: list[tuple[str, str, bool, type[BaseException] | None]] = [
    ("free", "absent", False, None),
    ("taken", "empty", False, FileExistsError),
    ("to be replaced", "empty", True, None),
    ("a link", "link", True, ValueError),
]
for name, leaf, allow_replace, ending in LEAVES:

    def _replaceable(
        ground: Ground, leaf: str = leaf, allow_replace: bool = allow_replace
    ) -> None:
        with _pinned(ground) as root:
            root._assert_replaceable_leaf(
                root._descriptor, leaf, safe_path=leaf, allow_replace=allow_replace
            )

    SCENARIOS[f"replaceable leaf, {name}"] = Scenario(_replaceable, ending)


@_scenario("another file at the path", ValueError)
@_on_root
def _another_file(root: Any) -> None:
    stat = root.stat_regular_file("empty", label="file")
    root._assert_path_matches_regular_file(FILE, label="file", expected_stat=stat)


# --- Contained roots


@_scenario("contained root")
@_on_root
def _contained(root: Any) -> None:
    with root.open_contained_root("sub", label="child") as child:
        child.read_regular_file("inner.bin", label="file")


@_scenario("contained root of a contained root")
@_on_root
def _contained_twice(root: Any) -> None:
    with root.open_contained_root("sub", label="child") as child:
        root.close()
        with child.open_contained_root("deep", label="grandchild") as grandchild:
            grandchild.read_regular_file_if_present("leaf", label="file")


@_scenario("contained root, moved away", ValueError)
def _contained_moved(ground: Ground) -> None:
    with ExitStack() as back, _pinned(ground) as root:
        with root.open_contained_root("sub", label="child"):
            back.enter_context(moved_away(ground.tree / "sub"))


NO_CHILDREN: list[tuple[str, Any, type[BaseException]]] = [
    ("missing", "absent", FileNotFoundError),
    ("a link", "linked", ValueError),
    ("a file", FILE, ValueError),
    ("no text", None, TypeError),
]
for name, target, kind in NO_CHILDREN:

    def _no_child(ground: Ground, path: Any = target) -> None:
        with _pinned(ground) as root:
            root.open_contained_root(path, label="child")

    SCENARIOS[f"contained root, {name}"] = Scenario(_no_child, kind)


# --- Files that the caller holds


class _Stand:
    """A file that is none: it names a real descriptor, and fails when it comes to the bytes."""

    def __init__(self, file: Any, failing: str) -> None:
        self._file = file
        self._failing = failing

    def __getattr__(self, name: str) -> Any:
        if name == self._failing:
            raise Own(name)
        return getattr(self._file, name)


@contextmanager
def _opened(ground: Ground) -> Iterator[tuple[Any, Any]]:
    with _pinned(ground) as root, root.open_regular_file_for_read(FILE, label="file") as file:
        yield root, file


@_scenario("hash an open file")
def _hash_open(ground: Ground) -> None:
    with _opened(ground) as (root, file):
        root.hash_open_regular_file(file, FILE, label="file", chunk_bytes=1000)


@_scenario("hash an open file under another path", ValueError)
def _hash_elsewhere(ground: Ground) -> None:
    with _opened(ground) as (root, file):
        root.hash_open_regular_file(file, "empty", label="file")


for name in ("fileno", "seek", "read"):

    def _hash_failing(ground: Ground, name: str = name) -> None:
        with _opened(ground) as (root, file):
            root.hash_open_regular_file(_Stand(file, name), FILE, label="file")

    SCENARIOS[f"hash an open file, {name} fails"] = Scenario(_hash_failing, Own)


@_scenario("identify an open file")
def _identify(ground: Ground) -> None:
    with _opened(ground) as (root, file):
        identity = root.hash_open_regular_file(file, FILE, label="file")
        root.assert_open_regular_file_identity(file, FILE, label="file", identity=identity)


@_scenario("identify another file", ValueError)
def _identify_another(ground: Ground) -> None:
    with _opened(ground) as (root, file):
        identity = root.hash_regular_file("empty", label="file")
        root.assert_open_regular_file_identity(file, FILE, label="file", identity=identity)


@_scenario("identify by nothing", AttributeError)
def _identify_nothing(ground: Ground) -> None:
    with _opened(ground) as (root, file):
        root.assert_open_regular_file_identity(file, FILE, label="file", identity=None)


# --- Whole loads

BROKEN: dict[str, Callable[[Path], object]] = {
    "no manifest": lambda root: (root / "manifest.json").unlink(),
    "no JSON": lambda root: (root / "manifest.json").write_bytes(b"{"),
    "a retired sidecar": lambda root: (root / "signals_index.json").touch(),
    "no sidecar": lambda root: (root / valid_distribution().reference).unlink(),
    "another sidecar": lambda root: (root / valid_distribution().reference).write_bytes(b"{}"),
    "no member": lambda root: (root / SIGNAL_FILE).unlink(),
    "a member of another size": lambda root: (root / SIGNAL_PNL).write_bytes(b""),
    "a member of other bytes": lambda root: (root / SIGNAL_PNL).write_bytes(
        b"C" + (root / SIGNAL_PNL).read_bytes()[1:]
    ),
    "a member that is a link": lambda root: (root / SIGNAL_FILE).symlink_to(
        (root / SIGNAL_FILE).rename(root / "aside")
    ),
}
LOAD_FAILURES: dict[str, type[BaseException]] = {
    "no manifest": FileNotFoundError,
    "no JSON": client_manifest.ManifestJsonError,
    "no sidecar": FileNotFoundError,
    "no member": FileNotFoundError,
}


@_scenario("load")
def _load(ground: Ground) -> None:
    with bound("PinnedRoot", ground.root_class):
        client_manifest.load_accepted_distribution_set(ground.distribution)


@_scenario("load with a manifest at hand")
def _load_at_hand(ground: Ground) -> None:
    with bound("PinnedRoot", ground.root_class):
        client_manifest.load_accepted_distribution_set(
            ground.distribution, manifest=valid_distribution().manifest
        )


@_scenario("load with no manifest at hand", TypeError)
def _load_no_dict(ground: Ground) -> None:
    with bound("PinnedRoot", ground.root_class):
        no_dict: Any = []
        client_manifest.load_accepted_distribution_set(ground.distribution, manifest=no_dict)


for name in BROKEN:

    def _broken_load(ground: Ground, name: str = name) -> None:
        with bound("PinnedRoot", ground.root_class):
            client_manifest.load_accepted_distribution_set(_broken(ground.distribution, name))

    SCENARIOS[f"load, {name}"] = Scenario(_broken_load, LOAD_FAILURES.get(name, ValueError))
