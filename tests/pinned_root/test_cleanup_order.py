"""A cleanup judges its selector, then the paths to preserve, then the root, and then lists."""

from __future__ import annotations

from collections.abc import Iterator
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.cleanups import CLEANUPS, by_prefix, by_suffix
from pinned_root.hostile import Own
from pinned_root.moves import noting_class
from pinned_root.recording import Call
from pinned_root.trees import contents, link_to, plant
from support.descriptors import descriptors_kept
from support.failures import fails_with

BAD_SUFFIX = "contained cleanup suffix must be a non-empty filename suffix"
EXACT = "manifest relative path must be an exact relative POSIX path"
SEGMENTS = "manifest relative path must not contain empty, dot, or parent segments"
NO_TEXT = "manifest relative path must be a string"
CLOSED = "pinned root is closed"

EACH = pytest.mark.parametrize("walk", CLEANUPS)


@pytest.fixture
def odd(tree: Path) -> Path:
    """A tree that every cleanup stops at, once it has begun to list."""
    plant(tree, {"yard/odd.tmp": link_to("nowhere"), "odd.tmp": link_to("nowhere")})
    return tree


@pytest.mark.parametrize("suffix", ["", "a/b", None])
def test_a_bad_suffix_comes_before_all_else(root: PinnedRoot, odd: Path, suffix: Any) -> None:
    root.close()
    for preserved in ({"/bad"}, None, [5]):
        with fails_with(ValueError, BAD_SUFFIX):
            by_suffix(root, suffix, preserved)


def test_a_bad_prefix_comes_before_all_else(root: PinnedRoot, odd: Path) -> None:
    root.close()
    for preserved in ({"a/../b"}, None, [5]):
        with fails_with(ValueError, EXACT):
            by_prefix(root, ("yard", "/"), preserved)
    with fails_with(ValueError, SEGMENTS):
        by_prefix(root, ("a/../b", ""), ())


@EACH
def test_a_bad_path_to_preserve_comes_before_the_root_and_the_disk(
    root: PinnedRoot, odd: Path, walk: str
) -> None:
    with descriptors_kept(), fails_with(ValueError, EXACT):
        CLEANUPS[walk](root, ["fine", "/bad"])
    root.close()
    with fails_with(TypeError, NO_TEXT):
        CLEANUPS[walk](root, [5])


@EACH
def test_a_closed_root_comes_before_the_disk(root: PinnedRoot, odd: Path, walk: str) -> None:
    root.close()
    with fails_with(RuntimeError, CLOSED):
        CLEANUPS[walk](root, ["fine"])


@EACH
def test_the_pin_is_asked_for_through_the_instance_after_the_arguments(
    tree: Path, walk: str
) -> None:
    told: list[str] = []

    class Telling(PinnedRoot):
        def _require_descriptor(self) -> int:
            told.append("pin")
            return super()._require_descriptor()

    def preserved() -> Iterator[str]:
        told.append("first path")
        yield "a"
        told.append("second path")
        yield "b"
        told.append("end")

    with Telling(tree) as root:
        told.clear()
        assert CLEANUPS[walk](root, preserved()) == ()
        assert told == ["first path", "second path", "end", "pin"]


@EACH
def test_a_cleanup_makes_no_other_call_through_the_instance(tree: Path, walk: str) -> None:
    plant(tree, {"yard/deep/one.tmp": b"", "yard/two.tmp": b""})
    with noting_class()(tree) as root:
        root.calls.clear()
        assert CLEANUPS[walk](root, ()) == ("yard/deep/one.tmp", "yard/two.tmp")
        assert root.calls == [Call("_require_descriptor", (), {})]


@EACH
def test_the_descriptor_that_the_instance_gives_is_listed_and_stays_open(
    root: Any, tree: Path, walk: str
) -> None:
    plant(tree, {"sub/yard/one.tmp": b"", "yard/two.tmp": b""})
    with root.open_contained_root("sub", label="child") as child:
        root._require_descriptor = lambda: child._descriptor
        with descriptors_kept():
            assert CLEANUPS[walk](root, ()) == ("yard/one.tmp",)
    assert (tree / "yard" / "two.tmp").exists()


@EACH
@pytest.mark.parametrize(
    ("given", "kind"),
    [
        (None, TypeError),
        ("3", TypeError),
        (1.5, TypeError),
        (10**30, OverflowError),
        (-1, OSError),
        (2**31 - 1, OSError),
    ],
)
def test_a_pin_that_is_no_descriptor_fails_as_the_host_does(
    root: Any, walk: str, given: object, kind: type[Exception]
) -> None:
    root._require_descriptor = lambda: given
    with descriptors_kept(), fails_with(kind, None):
        CLEANUPS[walk](root, ())


@EACH
def test_a_failing_pin_passes_its_failure(root: Any, walk: str) -> None:
    def refuse() -> int:
        raise Own("mine")

    root._require_descriptor = refuse
    with descriptors_kept(), fails_with(Own, "mine"):
        CLEANUPS[walk](root, ())


def test_the_path_rule_judges_each_prefix_and_its_result_selects(
    root: PinnedRoot, tree: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    asked: list[object] = []

    def rule(path: object) -> str:
        asked.append(path)
        return {"one": "sub/deep", "two": "sub/none", "kept": "sub/deep/leaf.bin"}[str(path)]

    monkeypatch.setattr(client_manifest, "validate_manifest_relative_path", rule)
    assert by_prefix(root, ("one//", "two"), ["kept"]) == ()
    assert asked == ["one", "two", "kept"]
    assert by_prefix(root, ("one/",)) == ("sub/deep/leaf.bin",)


def test_the_path_rule_is_not_asked_for_a_suffix(
    root: PinnedRoot, tree: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    asked: list[object] = []

    def rule(path: object) -> object:
        asked.append(path)
        return path

    monkeypatch.setattr(client_manifest, "validate_manifest_relative_path", rule)
    before = contents(tree)
    assert by_suffix(root, "no such end") == ()
    assert by_suffix(root, "no such end", ["a", "b"]) == ()
    assert asked == ["a", "b"]
    assert contents(tree) == before


@EACH
def test_a_failure_of_the_path_rule_passes_unchanged(
    root: PinnedRoot, odd: Path, monkeypatch: pytest.MonkeyPatch, walk: str
) -> None:
    failure = FileNotFoundError("by the rule")

    def rule(path: object) -> str:
        raise failure

    monkeypatch.setattr(client_manifest, "validate_manifest_relative_path", rule)
    with descriptors_kept(), fails_with(FileNotFoundError, "by the rule") as caught:
        CLEANUPS[walk](root, ["any"])
    assert caught.error is failure
