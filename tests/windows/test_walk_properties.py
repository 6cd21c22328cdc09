"""For any tree and any path, a walk ends where a plain look-up by folded names does."""

from __future__ import annotations

from collections.abc import Iterator
from contextlib import contextmanager
from typing import Any

from hypothesis import given, settings
from hypothesis import strategies as st

from brindlefen.distribution import client_manifest
from windows.substitute import SubstituteBoundary
from windows.volume import DIRECTORY, DIRECTORY_REPARSE, FILE_REPARSE, Content, Kind, Volume
from windows.walked import handles_kept

Root: Any = client_manifest._WindowsPinnedRoot

NAMES = st.sampled_from(["a", "A", "b", "\u00e9", "\u00c9", "\u00df", "x.y", "\ud83d\ude00"])
PATHS = st.lists(NAMES, min_size=1, max_size=4).map("/".join)
CONTENTS = st.sampled_from(
    [DIRECTORY, DIRECTORY, DIRECTORY, b"bytes", FILE_REPARSE, DIRECTORY_REPARSE]
)
TREES = st.lists(st.tuples(PATHS, CONTENTS), max_size=12)


@contextmanager
def root_over(entries: list[tuple[str, Content]]) -> Iterator[tuple[Volume, Any]]:
    """A root over a tree of those entries that fit into what stands already."""
    volume = Volume()
    try:
        volume.plant({"data": DIRECTORY})
        for path, content in entries:
            *above, leaf = kinds_of(volume, path)
            if leaf is None and all(kind in (None, DIRECTORY) for kind in above):
                volume.plant({f"data/{path}": content})
        with Root("C:\\data", _boundary=SubstituteBoundary(volume)) as root:
            with handles_kept(volume):
                yield volume, root
        assert volume.open_handles == set() and volume.misuse == []
    finally:
        volume.dispose()


def kinds_of(volume: Volume, path: str) -> list[Content | None]:
    """What stands at each segment of the path, None from the first that is missing."""
    kinds: list[Content | None] = []
    parts = path.split("/")
    for end in range(1, len(parts) + 1):
        at = "data/" + "/".join(parts[:end])
        kinds.append(volume.node(at).content() if volume.exists(at) else None)
    return kinds


def verdict(kinds: list[Content | None], missing: str, refused: str, path: str) -> str | None:
    """The words in which a walk through all of `kinds` fails, or None where it succeeds."""
    for kind in kinds:
        if kind is None:
            return f"{missing}: {path}"
        if isinstance(kind, bytes) or kind is Kind.FILE_REPARSE:
            return f"{refused}: {path}"
        if kind is Kind.DIRECTORY_REPARSE:
            return f"contained directory is an unsafe reparse point: {path}"
    return None


@settings(max_examples=120)
@given(entries=TREES, path=PATHS)
def test_the_parent_walk_agrees_with_a_look_up(
    entries: list[tuple[str, Content]], path: str
) -> None:
    with root_over(entries) as (volume, root):
        expected = verdict(
            kinds_of(volume, path)[:-1],
            "what has a missing parent",
            "what has a non-directory or reparse parent",
            path,
        )
        try:
            parent, name = root._open_parent(path, label="what", create=False)
        except (ValueError, FileNotFoundError) as error:
            assert str(error) == expected
        else:
            assert expected is None
            above = path.rpartition("/")[0]
            assert name == path.rpartition("/")[2]
            assert volume.identity(parent) == volume.identity_of(f"data/{above}")
            volume.close(parent)


@settings(max_examples=80)
@given(entries=TREES, path=PATHS)
def test_a_contained_root_agrees_with_a_look_up(
    entries: list[tuple[str, Content]], path: str
) -> None:
    with root_over(entries) as (volume, root):
        expected = verdict(
            kinds_of(volume, path),
            "what is missing",
            "what has a reparse or non-directory segment",
            path,
        )
        try:
            child = root.open_contained_root(path, label="what")
        except (ValueError, FileNotFoundError) as error:
            assert str(error) == expected
        else:
            assert expected is None
            assert child._root_identity == volume.identity_of(f"data/{path}")
            assert child._anchor_components == tuple(path.split("/"))
            child.close()


@settings(max_examples=80)
@given(entries=TREES, path=PATHS)
def test_a_walk_that_creates_makes_just_what_is_missing(
    entries: list[tuple[str, Content]], path: str
) -> None:
    with root_over(entries) as (volume, root):
        before = volume.tree("data")
        kinds = kinds_of(volume, path)[:-1]
        blocked = any(kind not in (None, DIRECTORY) for kind in kinds)
        try:
            parent, _ = root._open_parent(path, label="what", create=True)
        except ValueError:
            assert blocked
            assert volume.tree("data") == before
        else:
            assert not blocked
            assert volume.identity(parent) == volume.identity_of(f"data/{path.rpartition('/')[0]}")
            volume.close(parent)
            made = volume.tree("data").keys() - before.keys()
            assert len(made) == kinds.count(None)
            assert all(volume.tree("data")[name] is DIRECTORY for name in made)
