"""The paths to preserve may come from any iterable; each is read once and judged as it comes."""

from __future__ import annotations

from collections.abc import Iterator
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.cleanups import CLEANUPS
from pinned_root.hostile import Own, raise_own
from pinned_root.outcomes import Failure, Value, outcome_of
from pinned_root.trees import contents, plant
from support.descriptors import descriptors_kept
from support.failures import fails_with
from support.naming import named

NO_TEXT = "manifest relative path must be a string"
EXACT = "manifest relative path must be an exact relative POSIX path"
SEGMENTS = "manifest relative path must not contain empty, dot, or parent segments"

EACH = pytest.mark.parametrize("walk", CLEANUPS)
KEPT = ["yard/b.tmp", "yard/sub/d.tmp"]
REMOVED = ("yard/a.tmp", "yard/sub/c.tmp")


@pytest.fixture(autouse=True)
def files(tree: Path) -> None:
    """Two files to keep and two to lose, beside the tree's own."""
    plant(tree, dict.fromkeys([*KEPT, *REMOVED], b""))


def generated() -> Iterator[str]:
    yield from KEPT


class Sequence:
    """Iterable by the old protocol only."""

    def __getitem__(self, index: int) -> str:
        return KEPT[index]


FORMS: dict[str, Any] = {
    "set": lambda: set(KEPT),
    "frozen set": lambda: frozenset(KEPT),
    "tuple": lambda: tuple(KEPT),
    "list": lambda: list(KEPT),
    "list with repeats": lambda: KEPT * 3,
    "generator": generated,
    "iterator": lambda: iter(KEPT),
    "map": lambda: map(str, KEPT),
    "dict": lambda: dict.fromkeys(KEPT, None),
    "dict of bad values": lambda: dict.fromkeys(KEPT, "/bad"),
    "keys": lambda: dict.fromkeys(KEPT).keys(),
    "old sequence": Sequence,
    "text subclass": lambda: [type("Text", (str,), {})(path) for path in KEPT],
}


@EACH
@pytest.mark.parametrize("form", FORMS)
def test_any_iterable_of_text_will_do(root: PinnedRoot, tree: Path, walk: str, form: str) -> None:
    with descriptors_kept():
        assert CLEANUPS[walk](root, FORMS[form]()) == REMOVED
    assert set(KEPT) <= contents(tree).keys()


@EACH
def test_each_path_is_read_once_and_judged_before_the_next(
    root: PinnedRoot, monkeypatch: pytest.MonkeyPatch, walk: str
) -> None:
    told: list[str] = []
    rule = client_manifest.validate_manifest_relative_path

    def judge(path: object) -> str:
        told.append(f"judge {path}")
        return rule(path)

    def paths() -> Iterator[str]:
        for path in ("a", "b", "a"):
            told.append(f"give {path}")
            yield path

    monkeypatch.setattr(client_manifest, "validate_manifest_relative_path", judge)
    CLEANUPS[walk](root, paths())
    told = [line for line in told if line != "judge yard"]
    assert told == ["give a", "judge a", "give b", "judge b", "give a", "judge a"]


@EACH
def test_the_first_bad_path_ends_the_reading(root: PinnedRoot, tree: Path, walk: str) -> None:
    before, rest = contents(tree), iter(["fine", "/bad", "never/../read", "left"])
    with descriptors_kept(), fails_with(ValueError, EXACT):
        CLEANUPS[walk](root, rest)
    assert list(rest) == ["never/../read", "left"]
    assert contents(tree) == before


@EACH
@pytest.mark.parametrize(
    ("path", "kind", "text"),
    [
        (None, TypeError, NO_TEXT),
        (5, TypeError, NO_TEXT),
        (b"yard/b.tmp", TypeError, NO_TEXT),
        (Path("yard/b.tmp"), TypeError, NO_TEXT),
        (("yard/b.tmp",), TypeError, NO_TEXT),
        ("", ValueError, EXACT),
        ("/b.tmp", ValueError, EXACT),
        ("yard/sub/", ValueError, EXACT),
        (" yard/b.tmp", ValueError, EXACT),
        ("yard//b.tmp", ValueError, SEGMENTS),
        ("./yard/b.tmp", ValueError, SEGMENTS),
    ],
    ids=named,
)
def test_a_bad_path_fails_the_whole_call_before_anything_goes(
    root: PinnedRoot, tree: Path, walk: str, path: object, kind: type[Exception], text: str
) -> None:
    before = contents(tree)
    with descriptors_kept(), fails_with(kind, text) as caught:
        CLEANUPS[walk](root, ["fine", path])
    assert caught.error.__context__ is None
    assert contents(tree) == before


@EACH
@pytest.mark.parametrize("preserved", [None, 5, object(), 1.5], ids=named)
def test_what_cannot_be_iterated_is_a_type_error(
    root: PinnedRoot, tree: Path, walk: str, preserved: object
) -> None:
    before = contents(tree)
    with descriptors_kept(), fails_with(TypeError, None):
        CLEANUPS[walk](root, preserved)
    assert contents(tree) == before


@EACH
@pytest.mark.parametrize("kind", [Own, StopAsyncIteration, KeyboardInterrupt, OSError])
def test_a_failing_iterator_passes_its_failure(
    root: PinnedRoot, tree: Path, walk: str, kind: type[BaseException]
) -> None:
    def paths() -> Iterator[str]:
        yield "fine"
        raise kind("mine")

    before = contents(tree)
    with descriptors_kept(), fails_with(kind, "mine"):
        CLEANUPS[walk](root, paths())
    assert contents(tree) == before


@EACH
@pytest.mark.parametrize(
    "methods",
    [
        ("__hash__",),
        ("__eq__", "__ne__"),
        ("__len__", "__bool__"),
        ("strip", "split"),
        ("__str__", "encode"),
    ],
    ids=" ".join,
)
def test_hostile_text_gives_a_result_or_its_own_failure(
    root: PinnedRoot, tree: Path, walk: str, methods: tuple[str, ...]
) -> None:
    before = contents(tree)
    kind = type("Hostile", (str,), {"__hash__": str.__hash__, **dict.fromkeys(methods, raise_own)})
    with descriptors_kept():
        ended = outcome_of(lambda: CLEANUPS[walk](root, [kind(path) for path in KEPT]))
    if isinstance(ended, Failure):
        assert (ended.kind, ended.text) == (Own, "mine")
    else:
        assert ended == Value(REMOVED)
        assert contents(tree).keys() == before.keys() - set(REMOVED)


@EACH
def test_an_iterator_that_closes_the_root_is_met_by_a_closed_root(
    root: PinnedRoot, tree: Path, walk: str
) -> None:
    def paths() -> Iterator[str]:
        root.close()
        yield "fine"

    before = contents(tree)
    with fails_with(RuntimeError, "pinned root is closed"):
        CLEANUPS[walk](root, paths())
    assert contents(tree) == before


@EACH
def test_an_iterator_that_changes_the_tree_is_listed_after_its_change(
    root: PinnedRoot, tree: Path, walk: str
) -> None:
    def paths() -> Iterator[str]:
        plant(tree, {"yard/late.tmp": b""})
        yield from KEPT

    assert CLEANUPS[walk](root, paths()) == tuple(sorted([*REMOVED, "yard/late.tmp"]))
