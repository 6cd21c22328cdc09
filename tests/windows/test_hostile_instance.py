"""An instance that is changed while it works, or lacks what it should have, crashes nothing."""

from __future__ import annotations

from collections.abc import Callable
from functools import partial
from typing import Any

import pytest

from windows.conftest import Pin
from windows.frame_steps import CASES
from windows.hostile import Raising, Root, hook_at, pinned, survive
from windows.substitute import SubstituteBoundary
from windows.volume import Volume


def _forget(root: Any) -> None:
    root.__dict__.clear()


def _lose_the_boundary(root: Any) -> None:
    root._boundary = None


def _lose_the_walk(root: Any) -> None:
    root._volume_path = root._root_components = root._anchor_components = Raising()
    root._root_identity = root._contained_root_label = root.path = Raising()


def _change_class(root: Any) -> None:
    class Other(Root):  # type: ignore[misc]
        _open_parent = _require_safe_directory = _require_descriptor = None
        _require_safe_regular = _open_directory_components = close = 5

    root.__class__ = Other


@pytest.mark.parametrize(
    "turn",
    [
        lambda root: root.close(),
        lambda root: setattr(root, "_descriptor", None),
        lambda root: setattr(root, "_descriptor", "text"),
        lambda root: setattr(root, "_anchor_handle", 2**70),
        lambda root: root.assert_root_unchanged(),
        lambda root: root.open_contained_root("sub", label="inner").close(),
        lambda root: root.__init__("C:\\data\\sub", _boundary=root._boundary),
        _forget,
        _lose_the_boundary,
        _lose_the_walk,
        _change_class,
    ],
)
@pytest.mark.parametrize("name", CASES)
def test_an_instance_changed_at_any_step_crashes_nothing(
    hostile: Volume, name: str, turn: Callable[[Any], object]
) -> None:
    for position in range(len(CASES[name].steps)):
        boundary = SubstituteBoundary(hostile)
        root = pinned(boundary)
        hook_at(boundary, name, position, before=partial(turn, root))
        survive(partial(CASES[name].run, root, root.sub))


@pytest.mark.parametrize("name", ["_descriptor", "_boundary", "_anchor_handle", "path"])
def test_an_instance_without_an_attribute_is_told_by_the_host(
    planted: Volume, pin: Pin, name: str
) -> None:
    root = pin()
    kept = root.__dict__.pop(name)
    survive(root.assert_root_unchanged)
    survive(root.close)
    survive(lambda: root._open_parent("sub/x", label="what", create=False))
    root.__dict__[name] = kept
    for handle in planted.open_handles - {root._descriptor}:
        planted.close(handle)


def test_an_instance_that_was_never_pinned_is_told_by_the_host() -> None:
    root = Root.__new__(Root)
    for run in (root.close, root.assert_root_unchanged, root._require_descriptor):
        with pytest.raises(AttributeError):
            run()
