"""A root is closed once and for all, and leaving a `with` block proves it first."""

from __future__ import annotations

import os
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.disk import move_away, swap_for_copy
from support.descriptors import descriptors_kept
from support.failures import fails_with

UNSAFE = "pinned root canonical path changed or became unsafe during operation"
CHANGED = "pinned root canonical path changed during operation"
CLOSED = "pinned root is closed"


def is_open(descriptor: Any) -> bool:
    try:
        os.fstat(descriptor)
    except OSError:
        return False
    return True


def test_close_releases_the_descriptor_and_forgets_it(tree: Path) -> None:
    root: Any = PinnedRoot(tree)
    descriptor = root._descriptor
    assert root.close() is None
    assert not is_open(descriptor)
    assert (root._descriptor, root._anchor_descriptor) == (None, None)
    assert (root.path, root._anchor_components) == (tree, ())


def test_closing_twice_leaves_a_reused_number_alone(tree: Path) -> None:
    root = PinnedRoot(tree)
    number: Any = root._descriptor
    root.close()
    other = os.open(tree / "file.bin", os.O_RDONLY)
    if other != number:
        os.dup2(other, number)
        os.close(other)
    root.close()
    assert is_open(number)
    os.close(number)


def test_a_contained_root_closes_both_descriptors(root: PinnedRoot) -> None:
    with descriptors_kept():
        child = root.open_contained_root("sub", label="child")
        both = (child._descriptor, child._anchor_descriptor)
        assert len(set(both)) == 2 and all(map(is_open, both))
        child.close()
        assert not any(map(is_open, both))
        assert (child._descriptor, child._anchor_descriptor) == (None, None)
    root.assert_root_unchanged()


def test_a_failing_close_of_the_pin_still_closes_the_anchor(root: PinnedRoot) -> None:
    child: Any = root.open_contained_root("sub", label="child")
    anchor = child._anchor_descriptor
    os.close(child._descriptor)
    with fails_with(OSError, "[Errno 9] Bad file descriptor"):
        child.close()
    assert not is_open(anchor)
    assert (child._descriptor, child._anchor_descriptor) == (None, None)
    child.close()


def test_a_failing_close_of_the_anchor_comes_after_the_pin(root: PinnedRoot) -> None:
    child: Any = root.open_contained_root("sub", label="child")
    descriptor = child._descriptor
    os.close(child._anchor_descriptor)
    with fails_with(OSError, "[Errno 9] Bad file descriptor"):
        child.close()
    assert not is_open(descriptor)
    assert (child._descriptor, child._anchor_descriptor) == (None, None)


def test_both_closes_failing_report_the_anchor_in_the_context_of_the_pin(
    root: PinnedRoot,
) -> None:
    child: Any = root.open_contained_root("sub", label="child")
    os.close(child._descriptor)
    os.close(child._anchor_descriptor)
    with fails_with(OSError, "[Errno 9] Bad file descriptor") as caught:
        child.close()
    assert isinstance(caught.error.__context__, OSError)


def test_a_root_with_only_an_anchor_is_still_closed(root: PinnedRoot) -> None:
    child: Any = root.open_contained_root("sub", label="child")
    os.close(child._descriptor)
    child._descriptor = None
    anchor = child._anchor_descriptor
    child.close()
    assert not is_open(anchor)


def test_the_attributes_are_cleared_before_anything_is_closed(root: PinnedRoot) -> None:
    seen: list[tuple[str, object, bool]] = []

    class Noting(PinnedRoot):
        def __setattr__(self, name: str, value: object) -> None:
            number = vars(self).get("_descriptor")
            if value is None and isinstance(number, int):
                seen.append((name, value, is_open(number)))
            super().__setattr__(name, value)

    noting = Noting(root.path)
    noting.close()
    assert ("_descriptor", None, True) in seen


def test_entering_gives_the_instance_without_a_check(tree: Path) -> None:
    root = PinnedRoot(tree)
    aside = swap_for_copy(tree)
    assert root.__enter__() is root
    root.close()
    assert root.__enter__() is root
    assert aside.is_dir()


def test_a_good_block_ends_with_a_closed_root(tree: Path) -> None:
    with descriptors_kept(), PinnedRoot(tree) as root:
        pass
    assert root._descriptor is None


def test_leaving_gives_none_so_that_failures_travel_on(tree: Path) -> None:
    root: Any = PinnedRoot(tree)
    error = KeyError("x")
    assert root.__exit__(KeyError, error, None) is None
    with fails_with(KeyError, "'x'") as caught, PinnedRoot(tree):
        raise error
    assert caught.error is error


@pytest.mark.parametrize("names", [(), ("_exc_type", "_exc", "_traceback")])
def test_leaving_takes_three_values_by_place_or_by_name(
    tree: Path, names: tuple[str, ...]
) -> None:
    root: Any = PinnedRoot(tree)
    if names:
        root.__exit__(**dict.fromkeys(names))
    else:
        root.__exit__(None, None, None)
    assert root._descriptor is None


def test_a_normal_end_over_a_swapped_root_fails_and_closes(tree: Path) -> None:
    with descriptors_kept(), fails_with(ValueError, CHANGED):
        with PinnedRoot(tree) as root:
            swap_for_copy(tree)
    assert root._descriptor is None


def test_the_failed_proof_replaces_the_failure_of_the_block(tree: Path) -> None:
    with descriptors_kept(), fails_with(ValueError, CHANGED) as caught:
        with PinnedRoot(tree) as root:
            swap_for_copy(tree)
            raise KeyError("lost")
    assert isinstance(caught.error.__context__, KeyError)
    assert root._descriptor is None


def test_the_failed_walk_of_the_proof_replaces_the_failure_of_the_block(tree: Path) -> None:
    with descriptors_kept(), fails_with(ValueError, UNSAFE, cause=FileNotFoundError):
        with PinnedRoot(tree):
            move_away(tree)
            raise KeyError("lost")


def test_leaving_a_closed_root_proves_nothing(tree: Path) -> None:
    with PinnedRoot(tree) as root:
        root.close()
        swap_for_copy(tree)


def test_leaving_twice_is_harmless(tree: Path) -> None:
    root = PinnedRoot(tree)
    with root:
        pass
    with root:
        move_away(tree)


def test_the_failing_close_replaces_the_failed_proof(tree: Path) -> None:
    class Stubborn(PinnedRoot):
        def close(self) -> None:
            super().close()
            raise KeyError("close")

    with descriptors_kept(), fails_with(KeyError, "'close'") as caught:
        with Stubborn(tree):
            swap_for_copy(tree)
    assert str(caught.error.__context__) == CHANGED


def test_a_closed_root_walks_its_path_before_it_is_found_closed(tree: Path) -> None:
    root = PinnedRoot(tree)
    root.close()
    with descriptors_kept(), fails_with(RuntimeError, CLOSED) as caught:
        root.assert_root_unchanged()
    assert caught.error.__context__ is None
    move_away(tree)
    with descriptors_kept(), fails_with(ValueError, UNSAFE, cause=FileNotFoundError):
        root.assert_root_unchanged()


def test_a_closed_contained_root_walks_from_the_top(root: PinnedRoot, tree: Path) -> None:
    child = root.open_contained_root("sub", label="child")
    child.close()
    with fails_with(RuntimeError, CLOSED):
        child.assert_root_unchanged()
    move_away(tree)
    with fails_with(ValueError, UNSAFE, cause=FileNotFoundError):
        child.assert_root_unchanged()


def test_the_descriptor_is_given_or_the_root_is_closed(tree: Path) -> None:
    root = PinnedRoot(tree)
    assert root._require_descriptor() == root._descriptor
    root.close()
    with fails_with(RuntimeError, CLOSED) as caught:
        root._require_descriptor()
    assert caught.error.__context__ is None


def test_a_root_that_nobody_closes_keeps_its_descriptor(tree: Path) -> None:
    with descriptors_kept(left_open=1):
        root = PinnedRoot(tree)
        number: Any = root._descriptor
        del root
    os.close(number)
