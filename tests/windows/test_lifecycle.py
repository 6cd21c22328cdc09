"""A root over handles is closed once and for all, and leaving a `with` block proves it first."""

from __future__ import annotations

import gc
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.failures import fails_with
from windows.conftest import Pin
from windows.substitute import SubstituteBoundary
from windows.volume import DIRECTORY, Volume
from windows.walked import CLOSED, ROOT_CHANGED

Root: Any = client_manifest._WindowsPinnedRoot


@pytest.fixture
def child(planted: Volume, pin: Pin) -> Any:
    """A contained root, whose creator is closed already."""
    root = pin()
    child = root.open_contained_root("sub", label="child")
    root.close()
    return child


def test_close_ends_the_handle_and_forgets_it(volume: Volume, pin: Pin) -> None:
    root = pin()
    assert root.close() is None
    assert volume.open_handles == set()
    assert (root._descriptor, root._anchor_handle) == (None, None)


def test_closing_twice_is_harmless(boundary: SubstituteBoundary, pin: Pin) -> None:
    root = pin()
    root.close()
    boundary.calls.clear()
    assert root.close() is None
    assert boundary.calls == []


def test_a_contained_root_ends_its_handle_before_its_anchor(
    planted: Volume, boundary: SubstituteBoundary, child: Any
) -> None:
    handles = [child._descriptor, child._anchor_handle]
    assert planted.open_handles == set(handles)
    boundary.calls.clear()
    child.close()
    assert [call[:2] for call in boundary.calls] == [("close", (handle,)) for handle in handles]


def test_the_root_counts_as_closed_before_anything_is_closed(
    boundary: SubstituteBoundary, child: Any
) -> None:
    seen: list[object] = []

    def look() -> None:
        seen.append((child._descriptor, child._anchor_handle))
        child.close()

    boundary.hook("close", 1, before=look)
    boundary.hook("close", 2, before=look)
    child.close()
    assert seen == [(None, None), (None, None)]


@pytest.mark.parametrize("kind", [OSError, KeyError, KeyboardInterrupt])
def test_a_failing_close_of_the_pin_still_closes_the_anchor(
    planted: Volume, boundary: SubstituteBoundary, child: Any, kind: type[BaseException]
) -> None:
    error = kind("mine")
    boundary.hook("close", 1, raises=error)
    with pytest.raises(kind) as caught:
        child.close()
    assert caught.value is error
    assert planted.open_handles == set()
    assert (child._descriptor, child._anchor_handle) == (None, None)
    child.close()


def test_a_failing_close_of_the_anchor_comes_after_the_pin(
    planted: Volume, boundary: SubstituteBoundary, child: Any
) -> None:
    boundary.hook("close", 2, raises=OSError(9, "mine"))
    with fails_with(OSError, "[Errno 9] mine"):
        child.close()
    assert planted.open_handles == set()


def test_of_two_failing_closes_the_second_tells_the_first(
    boundary: SubstituteBoundary, child: Any
) -> None:
    first, second = OSError(9, "first"), OSError(9, "second")
    boundary.hook("close", 1, raises=first)
    boundary.hook("close", 2, raises=second)
    with pytest.raises(OSError) as caught:
        child.close()
    assert caught.value is second
    assert caught.value.__context__ is first


@pytest.mark.parametrize("left", ["_descriptor", "_anchor_handle"])
def test_whatever_handle_is_left_is_closed(planted: Volume, child: Any, left: str) -> None:
    other = {"_descriptor": "_anchor_handle", "_anchor_handle": "_descriptor"}[left]
    taken = getattr(child, other)
    setattr(child, other, None)
    child.close()
    assert planted.open_handles == {taken}
    planted.close(taken)


def test_a_block_proves_the_root_and_closes_it(
    volume: Volume, boundary: SubstituteBoundary, pin: Pin
) -> None:
    with pin() as root:
        assert volume.open_handles == {root._descriptor}
        boundary.calls.clear()
    assert volume.open_handles == set()
    assert boundary.names_called()[0] == "open_volume"


def test_a_block_that_ends_well_fails_if_the_root_was_swapped(volume: Volume, pin: Pin) -> None:
    with fails_with(ValueError, ROOT_CHANGED):
        with pin():
            volume.replace("data", DIRECTORY)
    assert volume.open_handles == set()


def test_a_failed_proof_replaces_the_failure_of_the_block(volume: Volume, pin: Pin) -> None:
    with pytest.raises(ValueError, match=ROOT_CHANGED) as caught:
        with pin():
            volume.replace("data", DIRECTORY)
            raise KeyError("mine")
    assert isinstance(caught.value.__context__, KeyError)
    assert volume.open_handles == set()


def test_a_failure_of_the_block_passes_a_sound_root(volume: Volume, pin: Pin) -> None:
    with pytest.raises(KeyError):
        with pin():
            raise KeyError("mine")
    assert volume.open_handles == set()


def test_leaving_the_block_of_a_closed_root_proves_nothing(
    volume: Volume, boundary: SubstituteBoundary, pin: Pin
) -> None:
    with pin() as root:
        root.close()
        volume.remove("data")
        boundary.calls.clear()
    assert boundary.calls == []


def test_a_closed_root_walks_nothing(
    planted: Volume, boundary: SubstituteBoundary, pin: Pin
) -> None:
    root = pin()
    root.close()
    boundary.calls.clear()
    for operation in (
        root._require_descriptor,
        lambda: root._open_parent("sub/file", label="what", create=False),
        lambda: root._assert_path_matches_regular_file("file", label="x", expected_stat=None),
        lambda: root._assert_leaf_missing("file", label="what"),
        lambda: root._assert_directory_path_matches("", expected_directory=0, label="what"),
        lambda: root._assert_directory_path_matches("sub", expected_directory=0, label="what"),
        lambda: root._assert_parent_path_matches("sub/x", expected_parent=0, label="what"),
    ):
        with fails_with(RuntimeError, CLOSED):
            operation()
    assert boundary.calls == []


def test_a_closed_root_is_proved_but_opens_nothing_beneath_it(
    planted: Volume, boundary: SubstituteBoundary, pin: Pin
) -> None:
    root = pin()
    root.close()
    with fails_with(RuntimeError, CLOSED):
        root.open_contained_root("sub", label="child")
    assert planted.open_handles == set()


def test_a_contained_root_outlives_its_creator(planted: Volume, child: Any) -> None:
    child.assert_root_unchanged()
    assert child.read_regular_file("deep/file", label="what") == b"deep bytes"
    child.close()


def test_closing_a_contained_root_leaves_its_creator(planted: Volume, pin: Pin) -> None:
    root = pin()
    root.open_contained_root("sub", label="child").close()
    assert planted.open_handles == {root._descriptor}
    root.assert_root_unchanged()


def test_a_root_that_nobody_closes_keeps_its_handle(
    volume: Volume, boundary: SubstituteBoundary
) -> None:
    root = Root("C:\\data", _boundary=boundary)
    handle = root._descriptor
    del root
    gc.collect()
    assert volume.open_handles == {handle}
    volume.close(handle)
