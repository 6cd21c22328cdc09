"""Over random trees each tree operation does on the disk what a model says of the entries."""

from __future__ import annotations

import shutil
import tempfile
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path

import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.cleanups import by_prefix, by_suffix
from pinned_root.trees import DIRECTORY, FIFO, Entry, Tree, contents, link_to, plant
from support.descriptors import descriptors_kept

NAMES = ["a", "ab", "b", "a.tmp", ".tmp", ".a", "é\nb", "\udcff"]
paths = st.lists(st.sampled_from(NAMES), min_size=1, max_size=4).map("/".join)
plain = st.sampled_from([b"", b"bytes", DIRECTORY])
any_entry: st.SearchStrategy[Entry] = st.one_of(
    plain, plain, plain, st.sampled_from([FIFO, link_to("a"), link_to("nowhere")])
)


def consistent(entries: dict[str, Entry]) -> Tree:
    """Keeps what can stand together: nothing lies beneath what is no directory."""
    tree: Tree = {}
    for path, entry in sorted(entries.items()):
        above = ["/".join(path.split("/")[:depth]) for depth in range(1, path.count("/") + 1)]
        if all(tree.get(one, DIRECTORY) == DIRECTORY for one in above):
            tree.update(dict.fromkeys(above, DIRECTORY))
            tree.setdefault(path, entry)
    return tree


trees = st.dictionaries(paths, any_entry, max_size=14).map(consistent)
some_paths = st.lists(paths, max_size=3)


@contextmanager
def planted(tree: Tree) -> Iterator[tuple[Path, PinnedRoot]]:
    """The tree on the disk, for one example, with a root pinned to it."""
    place = Path(tempfile.mkdtemp())
    try:
        plant(place, tree)
        assert contents(place) == tree
        with PinnedRoot(place) as root, descriptors_kept():
            yield place, root
    finally:
        shutil.rmtree(place)


def is_file(entry: Entry) -> bool:
    return isinstance(entry, bytes)


def beneath(tree: Tree, path: str) -> set[str]:
    return {one for one in tree if one.startswith(path + "/")}


def require_cleaned(tree: Tree, picked: set[str], place: Path, removed: object) -> None:
    """All that was picked has gone, and was told; nothing else has."""
    assert removed == tuple(sorted(picked))
    assert contents(place) == {path: entry for path, entry in tree.items() if path not in picked}


def require_stopped(tree: Tree, picked: set[str], place: Path, told: str) -> None:
    """An odd entry was told; nothing but picked regular files has gone."""
    odd = {path for path in picked if not is_file(tree[path])}
    assert told.split(": ", 1)[1] in odd
    left = contents(place)
    assert left.items() <= tree.items()
    assert tree.keys() - left.keys() <= picked - odd


@settings(max_examples=30)
@given(trees, st.sampled_from([".tmp", "b", "a", "\nb", "\udcff", "x"]), some_paths)
def test_a_cleanup_by_suffix_removes_what_the_model_picks(
    tree: Tree, suffix: str, preserved: list[str]
) -> None:
    picked = {
        path
        for path, entry in tree.items()
        if entry != DIRECTORY and path.endswith(suffix) and path not in preserved
    }
    with planted(tree) as (place, root):
        if all(is_file(tree[path]) for path in picked):
            require_cleaned(tree, picked, place, by_suffix(root, suffix, preserved))
        else:
            with pytest.raises(ValueError) as caught:
                by_suffix(root, suffix, preserved)
            require_stopped(tree, picked, place, str(caught.value))


@settings(max_examples=30)
@given(trees, some_paths, some_paths)
def test_a_cleanup_by_prefix_removes_what_the_model_picks(
    tree: Tree, prefixes: list[str], preserved: list[str]
) -> None:
    picked = {
        path
        for path, entry in tree.items()
        if entry != DIRECTORY
        and path not in preserved
        and any(path.startswith(f"{prefix}/") for prefix in prefixes)
        and not any(name.startswith(".") for name in path.split("/"))
    }
    with planted(tree) as (place, root):
        if all(is_file(tree[path]) for path in picked):
            require_cleaned(tree, picked, place, by_prefix(root, prefixes, preserved))
        else:
            with pytest.raises(ValueError) as caught:
                by_prefix(root, prefixes, preserved)
            require_stopped(tree, picked, place, str(caught.value))


@settings(max_examples=30)
@given(trees)
def test_the_directories_of_the_root_are_listed(tree: Tree) -> None:
    expected = {path for path, entry in tree.items() if entry == DIRECTORY and "/" not in path}
    with planted(tree) as (place, root):
        assert root.list_directory_names() == tuple(sorted(expected))
        assert contents(place) == tree


@settings(max_examples=30)
@given(trees, paths)
def test_a_directory_is_made_unless_something_else_stands_there(tree: Tree, path: str) -> None:
    names = path.split("/")
    segments = ["/".join(names[: depth + 1]) for depth in range(len(names))]
    with planted(tree) as (place, root):
        if all(tree.get(one, DIRECTORY) == DIRECTORY for one in segments):
            root.ensure_directory(path)
            assert contents(place) == {**tree, **dict.fromkeys(segments, DIRECTORY)}
        else:
            with pytest.raises(ValueError) as caught:
                root.ensure_directory(path)
            words = "contained directory has a symlink or non-directory segment: "
            assert str(caught.value) == words + path
            assert contents(place) == tree


@settings(max_examples=40)
@given(trees, paths)
def test_a_tree_goes_whole_or_stops_at_an_odd_entry(tree: Tree, path: str) -> None:
    inside = beneath(tree, path)
    odd = {one for one in inside if tree[one] != DIRECTORY and not is_file(tree[one])}
    above = [path[:end] for end, letter in enumerate(path) if letter == "/"]
    with planted(tree) as (place, root):
        if tree.get(path) == DIRECTORY and not odd:
            assert root.remove_directory_tree(path, missing_ok=True) is True
            gone = inside | {path}
            assert contents(place) == {one: tree[one] for one in tree if one not in gone}
        elif path not in tree and all(tree.get(one, DIRECTORY) == DIRECTORY for one in above):
            assert root.remove_directory_tree(path, missing_ok=True) is False
            assert contents(place) == tree
        else:
            with pytest.raises(ValueError) as caught:
                root.remove_directory_tree(path, missing_ok=True)
            left = contents(place)
            assert left.items() <= tree.items()
            assert tree.keys() - left.keys() <= inside - odd
            told = str(caught.value).split(": ", 1)[1]
            assert told in odd or (told == path and left == tree)
