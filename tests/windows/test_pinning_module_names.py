"""The module's own names are looked up when an operation runs, as a caller may replace them."""

from __future__ import annotations

import os
from pathlib import PurePosixPath
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.failures import fails_with
from windows.conftest import Pin
from windows.substitute import SubstituteBoundary
from windows.volume import Volume

Root: Any = client_manifest._WindowsPinnedRoot


def test_the_path_is_judged_by_the_function_of_that_name(
    planted: Volume, pin: Pin, monkeypatch: pytest.MonkeyPatch
) -> None:
    asked: list[object] = []

    def judge(path: object) -> str:
        asked.append(path)
        return "sub/deep"

    root = pin()
    monkeypatch.setattr(client_manifest, "validate_manifest_relative_path", judge)
    with root.open_contained_root("..", label="what") as child:
        assert asked == [".."]
        assert child._anchor_components == ("sub", "deep")


def test_stat_keys_are_made_by_the_function_of_that_name(
    planted: Volume, pin: Pin, monkeypatch: pytest.MonkeyPatch
) -> None:
    asked: list[object] = []

    def key(entry: object) -> int:
        asked.append(entry)
        return len(asked)

    root, expected = pin(), object()
    monkeypatch.setattr(client_manifest, "_regular_file_stat_key", key)
    text = "what path identity changed while open: file"
    with fails_with(ValueError, text):
        root._assert_path_matches_regular_file("file", label="what", expected_stat=expected)
    assert asked == [os.fstat(planted.node("data/file").backing), expected]


def test_the_path_is_made_by_the_class_of_that_name(
    boundary: SubstituteBoundary, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(client_manifest, "Path", PurePosixPath)
    root = Root("C:\\data", _boundary=boundary)
    assert type(root.path) is PurePosixPath
    root.close()
