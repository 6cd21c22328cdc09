"""The proof of a root walks to it again and compares what it finds with what was pinned."""

from __future__ import annotations

from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.failures import fails_with
from windows.conftest import Pin
from windows.substitute import SubstituteBoundary
from windows.volume import DIRECTORY, DIRECTORY_REPARSE, FILE_REPARSE, Content, Volume
from windows.walked import (
    REPARSE_DIRECTORY,
    ROOT_CHANGED,
    ROOT_UNSAFE,
    called,
    handles_kept,
    not_a_directory,
)

Root: Any = client_manifest._WindowsPinnedRoot


def test_an_unchanged_root_passes_by_a_walk_from_the_volume(
    volume: Volume, boundary: SubstituteBoundary, pin: Pin
) -> None:
    root = pin()
    boundary.calls.clear()
    with handles_kept(volume):
        assert root.assert_root_unchanged() is None
    assert called(boundary) == [
        ("open_volume", "\\\\?\\C:\\"),
        ("is_reparse", "#1"),
        ("kind", "#1"),
        ("open_directory", "#1", "data", {"create": False}),
        ("is_reparse", "#2"),
        ("kind", "#2"),
        ("close", "#1"),
        ("identity", "#2"),
        ("close", "#2"),
    ]


@pytest.mark.parametrize(
    "content, cause, words",
    [
        (None, FileNotFoundError, "data"),
        (b"bytes", OSError, not_a_directory("data")),
        (FILE_REPARSE, OSError, not_a_directory("data")),
        (DIRECTORY_REPARSE, ValueError, f"{REPARSE_DIRECTORY}: C:\\data"),
    ],
)
def test_a_root_that_can_not_be_walked_to_is_unsafe(
    volume: Volume, pin: Pin, content: Content | None, cause: type[Exception], words: str
) -> None:
    root = pin()
    if content is None:
        volume.remove("data")
    else:
        volume.replace("data", content)
    with handles_kept(volume), fails_with(ValueError, ROOT_UNSAFE, cause=cause) as caught:
        root.assert_root_unchanged()
    assert str(caught.error.__cause__) == words


def test_another_directory_in_its_place_is_a_change(volume: Volume, pin: Pin) -> None:
    root = pin()
    volume.replace("data", DIRECTORY)
    with handles_kept(volume), fails_with(ValueError, ROOT_CHANGED):
        root.assert_root_unchanged()


def test_a_root_renamed_in_letter_case_alone_is_the_same(volume: Volume, pin: Pin) -> None:
    root = pin()
    volume.move("data", "DaTa")
    root.assert_root_unchanged()


def test_a_root_moved_away_and_back_is_the_same(volume: Volume, pin: Pin) -> None:
    root = pin()
    volume.move("data", "away")
    with fails_with(ValueError, ROOT_UNSAFE, cause=FileNotFoundError):
        root.assert_root_unchanged()
    volume.move("away", "data")
    root.assert_root_unchanged()


def test_a_pending_root_is_missing(volume: Volume, pin: Pin) -> None:
    root = pin()
    let_go = volume.pend("data")
    with fails_with(ValueError, ROOT_UNSAFE, cause=FileNotFoundError):
        root.assert_root_unchanged()
    let_go()


def test_the_recorded_identity_decides_and_not_the_held_handle(
    volume: Volume, boundary: SubstituteBoundary, pin: Pin
) -> None:
    root = pin()
    root._root_identity = (volume.serial, b"\0" * 16)
    with fails_with(ValueError, ROOT_CHANGED):
        root.assert_root_unchanged()
    root._root_identity = (volume.serial + 1, volume.identity_of("data")[1])
    with fails_with(ValueError, ROOT_CHANGED):
        root.assert_root_unchanged()


def test_a_closed_root_is_walked_and_compared_all_the_same(volume: Volume, pin: Pin) -> None:
    root = pin()
    root.close()
    root.assert_root_unchanged()
    volume.replace("data", DIRECTORY)
    with fails_with(ValueError, ROOT_CHANGED):
        root.assert_root_unchanged()
    volume.remove("data")
    with fails_with(ValueError, ROOT_UNSAFE, cause=FileNotFoundError):
        root.assert_root_unchanged()
    assert volume.open_handles == set()


def test_a_closed_contained_root_is_held_against_the_absolute_path(
    planted: Volume, pin: Pin
) -> None:
    child = pin().open_contained_root("sub", label="child")
    child.close()
    with handles_kept(planted), fails_with(ValueError, ROOT_CHANGED):
        child.assert_root_unchanged()


@pytest.mark.parametrize("label, shown", [("child", "child"), ("", "contained root")])
def test_a_contained_root_is_proved_from_its_anchor_in_its_own_words(
    planted: Volume, boundary: SubstituteBoundary, pin: Pin, label: str, shown: str
) -> None:
    with pin().open_contained_root("sub/deep", label=label) as child:
        planted.move("data", "elsewhere")
        boundary.calls.clear()
        with handles_kept(planted):
            child.assert_root_unchanged()
        assert boundary.calls[0] == ("duplicate", (child._anchor_handle,), {})
        planted.move("elsewhere/sub", "away")
        with fails_with(ValueError, ROOT_UNSAFE, cause=FileNotFoundError) as caught:
            child.assert_root_unchanged()
        assert str(caught.error.__cause__) == f"{shown} is missing: sub/deep"
        planted.plant({"elsewhere/sub/deep": DIRECTORY})
        with fails_with(ValueError, ROOT_CHANGED):
            child.assert_root_unchanged()
        planted.exchange("away/deep", "elsewhere/sub/deep")


@pytest.mark.parametrize("kind", [OSError, FileNotFoundError, ValueError, KeyError])
def test_a_failing_identity_passes_as_it_is(
    volume: Volume, boundary: SubstituteBoundary, pin: Pin, kind: type[Exception]
) -> None:
    root, error = pin(), kind("mine")
    boundary.hook("identity", 1, raises=error)
    with handles_kept(volume), pytest.raises(kind) as caught:
        root.assert_root_unchanged()
    assert caught.value is error


def test_a_failing_close_after_the_proof_is_told(
    volume: Volume, boundary: SubstituteBoundary, pin: Pin
) -> None:
    root = pin()
    volume.replace("data", DIRECTORY)
    boundary.hook("close", 2, raises=OSError(9, "mine"))
    with handles_kept(volume), pytest.raises(OSError, match="mine") as caught:
        root.assert_root_unchanged()
    assert str(caught.value.__context__) == ROOT_CHANGED


def test_the_walk_goes_by_the_recorded_volume_and_components(
    volume: Volume, boundary: SubstituteBoundary, pin: Pin
) -> None:
    root = pin()
    volume.plant({"other": DIRECTORY})
    root._root_components = ("other",)
    with fails_with(ValueError, ROOT_CHANGED):
        root.assert_root_unchanged()
    root._volume_path = "\\\\?\\D:\\"
    with fails_with(ValueError, ROOT_UNSAFE, cause=FileNotFoundError):
        root.assert_root_unchanged()
