"""Both moves walk and judge through the instances, with fixed labels and in a fixed order."""

from __future__ import annotations

import os
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.hostile import Own
from pinned_root.moves import MOVES, NO_NAMES, NO_PARENTS, noting_class
from pinned_root.outcomes import Failure, outcome_of
from pinned_root.recording import Call, names_of
from pinned_root.trees import contents
from support.descriptors import descriptors_kept, open_descriptors
from support.failures import fails_with

SOURCE = "sub/inner.bin"
FRESH = "sub/deep/fresh"

EACH = pytest.mark.parametrize("word", MOVES)


@EACH
def test_the_calls_of_a_move_and_their_arguments(tree: Path, word: str) -> None:
    with noting_class()(tree) as root:
        root.calls.clear()
        MOVES[word](root, SOURCE, FRESH)
        assert names_of(root.calls) == [
            "_open_parent",
            "_require_descriptor",
            "_open_parent",
            "_require_descriptor",
            "_assert_replaceable_leaf",
        ]
        source, _, destination, _, judged = root.calls
        label = f"contained {word} source"
        assert source == Call("_open_parent", (SOURCE,), {"label": label, "create": False})
        label = f"contained {word} destination"
        assert destination == Call("_open_parent", (FRESH,), {"label": label, "create": True})
        parent, name = judged.args
        assert (type(parent), name) == (int, "fresh")
        assert judged.keywords == {"safe_path": FRESH, "allow_replace": True}


@EACH
def test_a_refused_source_ends_the_calls(tree: Path, word: str) -> None:
    with noting_class()(tree) as root:
        for source in ("sub", "absent", "sub/absent"):
            root.calls.clear()
            assert isinstance(outcome_of(lambda: MOVES[word](root, source, FRESH)), Failure)
            assert names_of(root.calls) == ["_open_parent", "_require_descriptor"]


@EACH
def test_attributes_of_the_instance_are_called(root: Any, tree: Path, word: str) -> None:
    walk, asked = root._open_parent, list[Any]()

    def instead(path: str, **keywords: Any) -> Any:
        return walk({SOURCE: "file.bin", FRESH: "sub/other"}[path], **keywords)

    root._open_parent = instead
    root._assert_replaceable_leaf = lambda *args, **keywords: asked.append((args[1], keywords))
    MOVES[word](root, SOURCE, FRESH)
    assert (tree / "sub" / "other").read_bytes() == b"outer bytes"
    assert asked == [("other", {"safe_path": FRESH, "allow_replace": True})]


@EACH
def test_the_path_rule_is_asked_for_the_source_and_then_for_the_destination(
    root: PinnedRoot, tree: Path, monkeypatch: pytest.MonkeyPatch, word: str
) -> None:
    asked: list[object] = []

    def rule(path: object) -> str:
        asked.append(path)
        return {"a": SOURCE, "b": FRESH}[str(path)]

    monkeypatch.setattr(client_manifest, "validate_manifest_relative_path", rule)
    MOVES[word](root, "a", "b")
    assert asked == ["a", "b"]
    assert (tree / FRESH).read_bytes() == b"inner bytes"
    with fails_with(FileNotFoundError, "[Errno 2] No such file or directory: 'inner.bin'"):
        MOVES[word](root, "a", "b")


@EACH
def test_a_judge_that_says_nothing_lets_a_link_be_replaced(
    root: Any, tree: Path, word: str
) -> None:
    (tree / "link").symlink_to("file.bin")
    root._assert_replaceable_leaf = lambda *args, **keywords: "not asked for its value"
    assert MOVES[word](root, SOURCE, "link") is None
    assert (tree / "link").read_bytes() == b"inner bytes" and not (tree / "link").is_symlink()
    assert (tree / "file.bin").read_bytes() == b"outer bytes"


@EACH
@pytest.mark.parametrize("kind", [Own, FileNotFoundError])
@pytest.mark.parametrize("step", ["source", "destination", "judge"])
def test_a_failure_of_any_step_passes_and_leaves_both_names(
    root: Any, tree: Path, word: str, step: str, kind: type[BaseException]
) -> None:
    failure, walk = kind("by the step"), root._open_parent

    def instead(*args: Any, **keywords: Any) -> Any:
        if step == "judge" or step not in keywords["label"]:
            return walk(*args, **keywords)
        raise failure

    def judge(*args: Any, **keywords: Any) -> None:
        raise failure

    root._open_parent = instead
    root._assert_replaceable_leaf = judge
    before = contents(tree)
    with descriptors_kept(), fails_with(kind, "by the step") as caught:
        MOVES[word](root, SOURCE, FRESH)
    assert caught.error is failure and failure.__context__ is None
    assert contents(tree) == before


@EACH
def test_the_source_is_held_open_while_the_destination_is_judged(
    root: Any, tree: Path, word: str
) -> None:
    before, held = open_descriptors(), list[str]()

    def judge(*args: Any, **keywords: Any) -> None:
        fresh = open_descriptors() - before
        held.extend(os.readlink(f"/proc/self/fd/{number}") for number in fresh)

    root._assert_replaceable_leaf = judge
    MOVES[word](root, SOURCE, FRESH)
    assert sorted(held) == sorted(map(str, [tree / "sub", tree / SOURCE, tree / "sub" / "deep"]))


@EACH
@pytest.mark.parametrize("side", ["source", "destination"])
def test_a_walk_that_gives_no_parent_fails_and_leaks_nothing(
    root: Any, tree: Path, word: str, side: str
) -> None:
    walk, before = root._open_parent, contents(tree)
    for found in NO_PARENTS:

        def instead(*args: Any, **keywords: Any) -> Any:
            return found if side in keywords["label"] else walk(*args, **keywords)

        root._open_parent = instead
        with descriptors_kept():
            ended = outcome_of(lambda: MOVES[word](root, SOURCE, FRESH))
        assert isinstance(ended, Failure), found
        assert contents(tree) == before


@EACH
@pytest.mark.parametrize("side", ["source", "destination"])
def test_a_walk_that_gives_no_usable_name_fails_and_closes_the_parents(
    root: Any, tree: Path, word: str, side: str
) -> None:
    walk, before = root._open_parent, contents(tree)
    for name in NO_NAMES:

        def instead(*args: Any, **keywords: Any) -> Any:
            parent, found = walk(*args, **keywords)
            return parent, (name if side in keywords["label"] else found)

        root._open_parent = instead
        with descriptors_kept():
            ended = outcome_of(lambda: MOVES[word](root, SOURCE, FRESH))
        assert isinstance(ended, Failure), name
        assert contents(tree) == before
