"""A root is pinned by a walk from the volume's own directory, one proved segment at a time."""

from __future__ import annotations

import os
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.failures import fails_with
from windows.conftest import Pin
from windows.substitute import SubstituteBoundary
from windows.volume import DIRECTORY, DIRECTORY_REPARSE, FILE_REPARSE, Volume
from windows.walked import NO_DIRECTORY, REPARSE_DIRECTORY, called, not_a_directory

Root: Any = client_manifest._WindowsPinnedRoot

LOCAL_DRIVE = "secure Windows pinned roots require a local drive path; UNC roots are unsupported"
OFF_WINDOWS = "the native Windows pinned-root boundary is available only on Windows"


class Named:
    """A path-like value."""

    def __init__(self, text: str) -> None:
        self.text = text

    def __fspath__(self) -> str:
        return self.text


def test_a_pinned_root_has_what_it_was_pinned_with(
    volume: Volume, boundary: SubstituteBoundary, pin: Pin
) -> None:
    root = pin("C:\\data")
    assert root.path == Path("C:\\data")
    assert root._boundary is boundary
    assert (root._volume_path, root._root_components) == ("\\\\?\\C:\\", ("data",))
    assert (root._anchor_handle, root._anchor_components) == (None, ())
    assert root._contained_root_label is None
    assert root._pending_update_identities == {}
    assert volume.open_handles == {root._descriptor}
    assert volume.path_of(root._descriptor) == "data"
    assert root._root_identity == volume.identity_of("data")


def test_the_walk_proves_each_directory_before_the_one_above_is_closed(
    volume: Volume, boundary: SubstituteBoundary, pin: Pin
) -> None:
    volume.plant({"data/sub": DIRECTORY})
    pin("C:\\data\\sub", create=True)
    assert called(boundary) == [
        ("split_root_path", "C:\\data\\sub"),
        ("open_volume", "\\\\?\\C:\\"),
        ("is_reparse", "#1"),
        ("kind", "#1"),
        ("open_directory", "#1", "data", {"create": True}),
        ("is_reparse", "#2"),
        ("kind", "#2"),
        ("close", "#1"),
        ("open_directory", "#2", "sub", {"create": True}),
        ("is_reparse", "#3"),
        ("kind", "#3"),
        ("close", "#2"),
        ("identity", "#3"),
    ]


@pytest.mark.parametrize("text", ["C:\\data", "c:/DATA/.", "\\\\?\\C:\\data", "C:\\x\\..\\data"])
@pytest.mark.parametrize("kind", [str, Named, Path])
def test_the_boundary_sees_the_text_as_it_came(
    volume: Volume, boundary: SubstituteBoundary, text: str, kind: Any
) -> None:
    given = kind(text)
    root = Root(given, _boundary=boundary)
    expected = str(given) if kind is Path else text
    assert boundary.calls[0] == ("split_root_path", (expected,), {})
    assert root.path == Path(expected)
    assert root._root_identity == volume.identity_of("data")
    root.close()


def test_on_windows_the_text_is_made_absolute_by_the_host(
    boundary: SubstituteBoundary, pin: Pin, monkeypatch: pytest.MonkeyPatch
) -> None:
    asked: list[object] = []

    class Paths:
        @staticmethod
        def abspath(path: object) -> str:
            asked.append(path)
            return "C:\\data"

    class Host:
        name = "nt"
        path = Paths
        fspath = staticmethod(os.fspath)

    monkeypatch.setattr(client_manifest, "os", Host)
    root = pin("data")
    assert asked == ["data"]
    assert boundary.calls[0] == ("split_root_path", ("C:\\data",), {})
    assert root.path == Path("C:\\data")


def test_a_bare_drive_is_pinned_at_its_root(volume: Volume, pin: Pin) -> None:
    root = pin("C:\\")
    assert root._root_components == ()
    assert root._root_identity == volume.identity_of("")
    root.assert_root_unchanged()


def test_letter_case_leads_to_the_same_root(volume: Volume, pin: Pin) -> None:
    assert pin("c:\\DATA")._root_identity == pin("C:\\data")._root_identity


def test_create_makes_every_missing_segment(volume: Volume, pin: Pin) -> None:
    root = pin("C:\\data\\a\\b", create=True)
    assert volume.tree() == {"data": DIRECTORY, "data/a": DIRECTORY, "data/a/b": DIRECTORY}
    assert root._root_identity == volume.identity_of("data/a/b")


def test_create_over_what_is_there_makes_nothing(volume: Volume, pin: Pin) -> None:
    identity = volume.identity_of("data")
    pin("C:\\DATA", create=True)
    assert volume.tree() == {"data": DIRECTORY}
    assert volume.identity_of("data") == identity


@pytest.mark.parametrize("missing", ["C:\\none", "C:\\data\\none", "C:\\none\\below"])
def test_a_missing_segment_is_told_by_its_name(boundary: SubstituteBoundary, missing: str) -> None:
    with fails_with(FileNotFoundError, "none") as caught:
        Root(missing, _boundary=boundary)
    assert caught.error.args == ("none",)


@pytest.mark.parametrize("create", [False, True])
@pytest.mark.parametrize("path", ["C:\\data\\file", "C:\\data\\file\\below"])
def test_a_file_in_the_path_fails_in_the_open(
    volume: Volume, boundary: SubstituteBoundary, path: str, create: bool
) -> None:
    volume.plant({"data/file": b"bytes"})
    with fails_with(OSError, not_a_directory("file")):
        Root(path, create=create, _boundary=boundary)
    assert volume.tree("data") == {"file": b"bytes"}


@pytest.mark.parametrize("create", [False, True])
@pytest.mark.parametrize("path", ["C:\\data\\junction", "C:\\data\\junction\\below"])
def test_a_junction_in_the_path_is_refused_in_the_words_of_the_whole_path(
    volume: Volume, boundary: SubstituteBoundary, path: str, create: bool
) -> None:
    volume.plant({"data/junction": DIRECTORY_REPARSE})
    with fails_with(ValueError, f"{REPARSE_DIRECTORY}: {path}"):
        Root(path, create=create, _boundary=boundary)


def test_a_file_link_in_the_path_fails_in_the_open(
    volume: Volume, boundary: SubstituteBoundary
) -> None:
    volume.plant({"data/link": FILE_REPARSE})
    with fails_with(OSError, not_a_directory("link")):
        Root("C:\\data\\link", _boundary=boundary)


def test_a_volume_that_is_a_link_is_refused_in_the_words_of_the_volume(
    volume: Volume, boundary: SubstituteBoundary
) -> None:
    volume.make_reparse("")
    with fails_with(ValueError, f"{REPARSE_DIRECTORY}: \\\\?\\C:\\"):
        Root("C:\\data", _boundary=boundary)


@pytest.mark.parametrize("nth, shown", [(1, "\\\\?\\C:\\"), (2, "C:\\data")])
def test_what_opens_as_a_directory_and_is_none_is_refused(
    boundary: SubstituteBoundary, nth: int, shown: str
) -> None:
    boundary.hook("kind", nth, returns="regular")
    with fails_with(ValueError, f"{NO_DIRECTORY}: {shown}"):
        Root("C:\\data", _boundary=boundary)


def test_a_pending_directory_is_missing(volume: Volume, boundary: SubstituteBoundary) -> None:
    let_go = volume.pend("data")
    for create in (False, True):
        with fails_with(FileNotFoundError, "data"):
            Root("C:\\data", create=create, _boundary=boundary)
    let_go()
    Root("C:\\data", create=True, _boundary=boundary).close()


@pytest.mark.parametrize("path", ["\\\\server\\share\\x", "\\\\?\\UNC\\server\\share"])
def test_a_root_off_the_local_drives_is_never_walked(
    boundary: SubstituteBoundary, path: str
) -> None:
    with fails_with(ValueError, LOCAL_DRIVE):
        Root(path, _boundary=boundary)
    assert boundary.names_called() == ["split_root_path"]


@pytest.mark.parametrize("kind", [OSError, ValueError, KeyError])
def test_a_root_without_an_identity_is_given_up(
    boundary: SubstituteBoundary, kind: type[Exception]
) -> None:
    error = kind("mine")
    boundary.hook("identity", 1, raises=error)
    root = Root.__new__(Root)
    with fails_with(kind, None) as caught:
        root.__init__("C:\\data", _boundary=boundary)
    assert caught.error is error
    assert root._descriptor is None
    assert boundary.names_called()[-2:] == ["identity", "close"]


@pytest.mark.parametrize("absent", [None, [], {}, 0, False, ""])
def test_a_false_boundary_counts_as_absent(absent: object) -> None:
    with fails_with(NotImplementedError, OFF_WINDOWS):
        Root("C:\\data", _boundary=absent)


def test_an_absent_boundary_is_made_by_the_class_of_that_name(
    boundary: SubstituteBoundary, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(client_manifest, "_WindowsHandleFileSystem", lambda: boundary)
    root = Root("C:\\data")
    assert root._boundary is boundary
    root.close()


@pytest.mark.parametrize("root", [None, 1, 1.5, object(), ["C:\\data"]])
def test_a_root_that_is_no_path_is_refused(boundary: SubstituteBoundary, root: object) -> None:
    with pytest.raises(TypeError):
        Root(root, _boundary=boundary)
    assert boundary.calls == []


def test_the_options_are_keywords_alone(boundary: SubstituteBoundary) -> None:
    for arguments in (("C:\\data", True), ("C:\\data", True, boundary), ()):
        with pytest.raises(TypeError):
            Root(*arguments)
    assert boundary.calls == []
