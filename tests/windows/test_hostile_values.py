"""Labels, paths and identities that raise or lie let their own failure out and leave nothing."""

from __future__ import annotations

from typing import Any

import pytest

from windows.conftest import Pin
from windows.hostile import Own, Raising, RaisingPair, RaisingText, survive
from windows.substitute import SubstituteBoundary
from windows.volume import Volume


@pytest.mark.parametrize("kind", [RaisingPair, Raising])
def test_an_identity_that_can_not_be_compared_lets_its_failure_out(
    planted: Volume, boundary: SubstituteBoundary, pin: Pin, kind: type[Any]
) -> None:
    root = pin()
    before = planted.open_handles
    boundary.hook("identity", 1, returns=kind())
    with pytest.raises(Own):
        root.assert_root_unchanged()
    assert planted.open_handles == before


def test_an_identity_that_lies_is_believed(
    planted: Volume, boundary: SubstituteBoundary, pin: Pin
) -> None:
    class Liar:
        def __eq__(self, other: object) -> bool:
            return True

        def __ne__(self, other: object) -> bool:
            return False

        __hash__ = None  # type: ignore[assignment]

    root = pin()
    boundary.hook("identity", 1, returns=Liar())
    root.assert_root_unchanged()


@pytest.mark.parametrize("kind", [Raising, RaisingText])
def test_a_label_that_can_not_be_shown_leaves_nothing_open(
    planted: Volume, pin: Pin, kind: type[Any]
) -> None:
    root, label = pin(), kind()
    before = planted.open_handles
    for run in (
        lambda: root._open_parent("none/x", label=label, create=False),
        lambda: root._open_directory_components(root._descriptor, ("none",), label=label),
        lambda: root._assert_leaf_missing("sub/file", label=label),
        lambda: root.open_contained_root("none", label=label),
        lambda: root._require_safe_regular(root._descriptor, "x", label),
    ):
        assert survive(run) is not None
        assert planted.open_handles == before


PATHS: dict[str, Any] = {
    "none": None,
    "number": 5,
    "bytes": b"sub/x",
    "raising text": RaisingText("sub/x"),
    "raising": Raising(),
    "empty": "",
    "slash": "/",
    "nul": "\0",
}


@pytest.mark.parametrize("name", PATHS)
def test_a_walk_of_what_is_no_path_crashes_nothing(planted: Volume, pin: Pin, name: str) -> None:
    root, path = pin(), PATHS[name]
    before = planted.open_handles
    for run in (
        lambda: root._open_directory_components(root._descriptor, path, label="what"),
        lambda: root._open_directory_components(root._descriptor, (path,), label="what"),
        lambda: root._assert_path_matches_regular_file(path, label="what", expected_stat=None),
        lambda: root._assert_parent_path_matches(path, expected_parent=4, label="what"),
        lambda: root._assert_directory_path_matches(path, expected_directory=4, label="what"),
        lambda: root._assert_leaf_missing(path, label="what"),
        lambda: root.open_contained_root(path, label="what").close(),
    ):
        survive(run)
    for handle in planted.open_handles - before:
        planted.close(handle)
    planted.misuse.clear()
    root.assert_root_unchanged()
