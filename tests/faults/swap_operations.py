"""The operations that change a tree, each on a scene of its own, with the answers it may give."""

from __future__ import annotations

from collections.abc import Callable, Collection, Iterator, Mapping
from contextlib import AbstractContextManager, contextmanager
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any

from brindlefen.distribution import client_manifest

from faults import swap_answers as words
from faults.layout import pinned
from faults.mutating_swaps import CONTENT, ROOT_SWAPS, STAGED_SWAPS, SWAPS, WALK_SWAPS, make_file
from faults.swap_answers import Answers

LEAF = "sub/deep/leaf.bin"
SPOT = "place/spot.bin"
FRESH = "sub/deep/fresh.bin"
NEW = b"what the operation writes"
REPLACED = b"what lies at the destination"
LAID_OUT = {"first": (LEAF, CONTENT), "second": (SPOT, REPLACED)}


@dataclass(frozen=True)
class Scene:
    """Two roots in one directory: the first holds LEAF, the second holds SPOT."""

    base: Path

    @property
    def first(self) -> Path:
        return self.base / "first"

    @property
    def second(self) -> Path:
        return self.base / "second"


# The act, and where the descriptors lead that are open around it.
Opened = tuple[Callable[[], object], dict[int, Path]]
Opening = Callable[[Scene], AbstractContextManager[Opened]]


@dataclass(frozen=True)
class Attacked:
    """`targets` gives the leaf to be swapped under each root that takes part.

    `pins` says that the operation pins its roots for itself. `stages` names the root that it
    stages a file in, which it reaches through a held directory, or by a path that it walks anew.
    A clean-up that fails can leave `left_by_clean_up` directories open.
    """

    opening: Opening
    answers: Answers
    targets: Mapping[str, str] = field(default_factory=lambda: {"first": LEAF})
    swaps: Collection[str] = tuple(SWAPS)
    pins: bool = False
    stages: str = ""
    stages_by_path: bool = False
    left_by_clean_up: int = 0
    may_be_empty: bool = False

    def prepare(self, scene: Scene) -> None:
        scene.base.mkdir()
        for root in self.targets:
            path, content = LAID_OUT[root]
            make_file(scene.base / root / path, content)
            (scene.base / f"{root}-beside").mkdir()

    def cases(self) -> Iterator[tuple[str, str]]:
        """Each root with each change that can be told from the others there."""
        for root, path in self.targets.items():
            for swap in self.swaps:
                one_segment = swap == "the parent links out" and path.count("/") == 1
                unstaged = swap in STAGED_SWAPS and root != self.stages
                if not one_segment and not unstaged:
                    yield root, swap


def _on_pin(act: Callable[[Any], object]) -> Opening:
    @contextmanager
    def opening(scene: Scene) -> Iterator[Opened]:
        with pinned(scene.first) as root:
            yield lambda: act(root), {root._descriptor: scene.first}

    return opening


def _on_two_pins(act: Callable[[Any, Any], object]) -> Opening:
    @contextmanager
    def opening(scene: Scene) -> Iterator[Opened]:
        with pinned(scene.first) as first, pinned(scene.second) as second:
            names = {first._descriptor: scene.first, second._descriptor: scene.second}
            yield lambda: act(first, second), names

    return opening


def _at_once(act: Callable[[Path, Path], object]) -> Opening:
    @contextmanager
    def opening(scene: Scene) -> Iterator[Opened]:
        yield lambda: act(scene.first, scene.second), {}

    return opening


def _update(root: Any, create: bool) -> None:
    root.open_regular_file_for_update(LEAF, create=create).close()


BOTH = {"first": LEAF, "second": SPOT}
CHILDREN = ["sub/deep", "sub/deep/leaf.bin"]
KEEP_NONE: frozenset[str] = frozenset()

ATTACKED = {
    "write": Attacked(
        _on_pin(lambda root: root.write_atomic(LEAF, NEW, allow_replace=True)),
        words.write(LEAF),
        stages="first",
        left_by_clean_up=1,
    ),
    "write anew": Attacked(
        _on_pin(lambda root: root.write_atomic(FRESH, NEW, allow_replace=False)),
        words.exclusive_write(FRESH),
        {"first": FRESH},
        stages="first",
        left_by_clean_up=1,
    ),
    "update": Attacked(_on_pin(lambda root: _update(root, False)), words.update(LEAF)),
    "update or create": Attacked(
        _on_pin(lambda root: _update(root, True)), words.update(LEAF), may_be_empty=True
    ),
    "remove": Attacked(
        _on_pin(lambda root: root.remove_regular_file(LEAF, missing_ok=False)), words.removal(LEAF)
    ),
    "replace": Attacked(
        _on_pin(lambda root: root.replace_regular_file(LEAF, "sub/next.bin")),
        words.carrying("replacement", LEAF, "sub/next.bin"),
    ),
    "move": Attacked(
        _on_two_pins(lambda first, second: first.move_regular_file_to(LEAF, second, SPOT)),
        words.carrying("move", LEAF, SPOT),
        BOTH,
    ),
    "clean up by suffix": Attacked(
        _on_pin(
            lambda root: root.remove_regular_files_with_suffix(
                ".bin", preserve_relative_paths=KEEP_NONE
            )
        ),
        words.suffix_cleanup(LEAF),
    ),
    "clean up by prefix": Attacked(
        _on_pin(
            lambda root: root.remove_regular_files_in_prefixes(
                ("sub/deep",), preserve_relative_paths=KEEP_NONE
            )
        ),
        words.prefix_cleanup(LEAF),
    ),
    "list": Attacked(
        _on_pin(lambda root: root.list_directory_names()), {}, swaps=(*WALK_SWAPS, *ROOT_SWAPS)
    ),
    "make a directory": Attacked(
        _on_pin(lambda root: root.ensure_directory("sub/deep/new/below")),
        words.new_directory("sub/deep/new/below"),
        {"first": "sub/deep/new"},
    ),
    "remove a tree": Attacked(
        _on_pin(lambda root: root.remove_directory_tree("sub", missing_ok=False)),
        words.tree_removal("sub", CHILDREN),
    ),
    "remove a lower tree": Attacked(
        _on_pin(lambda root: root.remove_directory_tree("sub/deep", missing_ok=False)),
        words.tree_removal("sub/deep", CHILDREN),
    ),
    "pin and write": Attacked(
        _at_once(
            lambda first, second: client_manifest.write_contained_regular_file(first, LEAF, NEW)
        ),
        {**words.root(), **words.write(LEAF)},
        swaps=ROOT_SWAPS,
        pins=True,
    ),
    "pin and copy": Attacked(
        _at_once(
            lambda first, second: client_manifest.copy_contained_regular_file(
                first, LEAF, second, SPOT
            )
        ),
        {**words.root(), **words.copy(LEAF, SPOT)},
        BOTH,
        pins=True,
        stages="second",
        stages_by_path=True,
    ),
    "pin and link": Attacked(
        _at_once(
            lambda first, second: client_manifest.link_or_copy_contained_regular_file(
                first, LEAF, second, SPOT
            )
        ),
        {**words.root(), **words.link_or_copy(LEAF, SPOT)},
        BOTH,
        pins=True,
        stages="second",
        stages_by_path=True,
        left_by_clean_up=2,
    ),
}
