"""A write and an update call their parts through the instance, in fixed order and fixed words."""

from __future__ import annotations

import os
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.hostile import Own
from pinned_root.recording import Call, names_of, recording_class
from pinned_root.staging import NO_BYTES, SPECIAL, names_in
from support.descriptors import descriptors_kept
from support.failures import fails_with
from support.naming import named

PATH = "sub/inner.bin"

WALK_TO_DESTINATION = {"label": "contained file destination", "create": True}


@pytest.fixture
def recorded(tree: Path) -> Iterator[Any]:
    """A recording root that notes the looks at a leaf as well; the pinning's calls are dropped."""
    kind: Any = recording_class()

    def judge(*args: Any, **keywords: Any) -> None:
        kind.calls.append(Call("_assert_replaceable_leaf", args, keywords))
        PinnedRoot._assert_replaceable_leaf(*args, **keywords)

    kind._assert_replaceable_leaf = staticmethod(judge)
    recorded = kind(tree)
    kind.calls.clear()
    yield recorded
    recorded.close()


@pytest.mark.parametrize("path", ["sub/new", PATH, "new/newer/leaf", "file.bin"])
def test_a_write_walks_once_and_looks_twice(recorded: Any, path: str) -> None:
    with descriptors_kept():
        recorded.write_atomic(path, b"payload", allow_replace=True)
    walk, pin, first, second = recorded.calls
    assert walk == Call("_open_parent", (path,), WALK_TO_DESTINATION)
    assert pin == Call("_require_descriptor", (), {})
    descriptor = first.args[0]
    assert type(descriptor) is int
    look = Call(
        "_assert_replaceable_leaf",
        (descriptor, Path(path).name),
        {"safe_path": path, "allow_replace": True},
    )
    assert first == second == look


@pytest.mark.parametrize("allow", [True, False, 1, 0, "", "yes", None, ()], ids=named)
def test_the_flag_is_handed_on_as_it_came(recorded: Any, allow: object) -> None:
    recorded.write_atomic("new", b"payload", allow_replace=allow)
    looks = [call for call in recorded.calls if call.name == "_assert_replaceable_leaf"]
    assert [look.keywords["allow_replace"] for look in looks] == [allow, allow]
    assert all(look.keywords["allow_replace"] is allow for look in looks)


def test_a_refused_write_looks_once(recorded: Any, tree: Path) -> None:
    with fails_with(FileExistsError, None):
        recorded.write_atomic(PATH, b"payload", allow_replace=False)
    assert names_of(recorded.calls) == [
        "_open_parent",
        "_require_descriptor",
        "_assert_replaceable_leaf",
    ]


@pytest.mark.parametrize("create", [False, True])
def test_an_update_walks_once_and_looks_at_nothing_else(recorded: Any, create: bool) -> None:
    recorded.open_regular_file_for_update(PATH, create=create).close()
    assert recorded.calls == [
        Call("_open_parent", (PATH,), {"label": "contained update file", "create": create}),
        Call("_require_descriptor", (), {}),
    ]


@pytest.mark.parametrize("create", [0, 1, "", "yes", None], ids=named)
def test_the_flag_of_an_update_is_handed_on_as_it_came(recorded: Any, create: object) -> None:
    recorded.open_regular_file_for_update(PATH, create=create).close()
    assert recorded.calls[0].keywords["create"] is create


@pytest.mark.parametrize("given", ["staticmethod", "method", "attribute"])
def test_the_look_may_be_overridden_in_any_form(tree: Path, given: str) -> None:
    """Whatever the host's lookup on the instance gives is called."""
    seen: list[tuple[Any, ...]] = []

    class Judging(PinnedRoot):
        pass

    def judge(*args: Any, **keywords: Any) -> None:
        seen.append(args)

    root: Any = Judging(tree)
    if given == "attribute":
        root._assert_replaceable_leaf = judge
    else:
        judging = staticmethod(judge) if given == "staticmethod" else judge
        setattr(Judging, "_assert_replaceable_leaf", judging)
    (tree / "link").symlink_to("file.bin")
    root.write_atomic("link", b"payload", allow_replace=False)
    root.close()
    assert len(seen) == 2 and seen[0] == seen[1]
    assert seen[0][-1] == "link" and len(seen[0]) == (3 if given == "method" else 2)
    assert not (tree / "link").is_symlink()
    assert (tree / "link").read_bytes() == b"payload"


def test_the_walk_decides_where_the_leaf_goes(tree: Path) -> None:
    """Its descriptor is used and closed, its name is the leaf; messages keep the whole path."""

    class Astray(PinnedRoot):
        def _open_parent(self, *args: Any, **keywords: Any) -> Any:
            return os.open(tree / "sub", os.O_RDONLY | os.O_DIRECTORY), "elsewhere"

    root = Astray(tree)
    with descriptors_kept():
        root.write_atomic("a/b", b"payload", allow_replace=False)
        assert (tree / "sub" / "elsewhere").read_bytes() == b"payload"
        root.open_regular_file_for_update("a/b", create=False).close()
    (tree / "sub" / "elsewhere").unlink()
    (tree / "sub" / "elsewhere").mkdir()
    with descriptors_kept(), fails_with(ValueError, SPECIAL.format("a/b")):
        root.write_atomic("a/b", b"payload", allow_replace=True)
    text = "contained update file is a symlink or is unsafe: a/b"
    with descriptors_kept(), fails_with(ValueError, text, cause=IsADirectoryError):
        root.open_regular_file_for_update("a/b", create=True)
    root.close()
    assert names_in(tree) == ["file.bin", "sub"]


Operation = Callable[[Any], object]

OPERATIONS: dict[str, Operation] = {
    "write": lambda root: root.write_atomic(PATH, b"payload", allow_replace=True),
    "update": lambda root: root.open_regular_file_for_update(PATH, create=True).close(),
}


@pytest.mark.parametrize("operation", OPERATIONS.values(), ids=OPERATIONS)
@pytest.mark.parametrize("kind", [Own, OSError, FileNotFoundError, KeyboardInterrupt])
def test_a_failure_of_the_walk_passes_unchanged(
    root: Any, tree: Path, operation: Operation, kind: type[BaseException]
) -> None:
    """An update translates failures of its own open, never those of the walk."""
    mine = kind("mine")

    def walk(*args: Any, **keywords: Any) -> Any:
        raise mine

    root._open_parent = walk
    with descriptors_kept(), fails_with(kind, "mine") as caught:
        operation(root)
    assert caught.error is mine and caught.error.__context__ is None
    assert (tree / PATH).read_bytes() == b"inner bytes"


@pytest.mark.parametrize("look", [1, 2])
@pytest.mark.parametrize("kind", [Own, OSError, FileNotFoundError, KeyboardInterrupt])
def test_a_failure_of_a_look_passes_unchanged_and_is_cleaned_up(
    root: Any, tree: Path, kind: type[BaseException], look: int
) -> None:
    mine = kind("mine")
    looks: list[int] = []

    def judge(*args: Any, **keywords: Any) -> None:
        looks.append(len(looks) + 1)
        if looks[-1] == look:
            raise mine

    root._assert_replaceable_leaf = judge
    with descriptors_kept(), fails_with(kind, "mine") as caught:
        root.write_atomic(PATH, b"payload", allow_replace=True)
    assert caught.error is mine and caught.error.__context__ is None
    assert looks == list(range(1, look + 1))
    assert names_in(tree / "sub") == ["deep", "inner.bin"]
    assert (tree / PATH).read_bytes() == b"inner bytes"


@pytest.mark.parametrize("operation", OPERATIONS)
def test_the_path_rule_is_asked_once_and_its_result_is_used(
    root: PinnedRoot, tree: Path, monkeypatch: pytest.MonkeyPatch, operation: str
) -> None:
    asked: list[object] = []

    def rule(path: object) -> str:
        asked.append(path)
        return "sub/deep"

    monkeypatch.setattr(client_manifest, "validate_manifest_relative_path", rule)
    with descriptors_kept(), pytest.raises(ValueError, match="sub/deep$"):
        OPERATIONS[operation](root)
    assert asked == [PATH]


def test_the_path_rule_is_asked_before_the_payload_is_judged(
    root: Any, monkeypatch: pytest.MonkeyPatch
) -> None:
    asked: list[object] = []
    monkeypatch.setattr(client_manifest, "validate_manifest_relative_path", asked.append)
    with fails_with(TypeError, NO_BYTES):
        root.write_atomic(5, "text", allow_replace=True)
    assert asked == [5]
