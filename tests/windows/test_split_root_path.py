"""Proves which root paths name a local drive, and how they are taken apart."""

from __future__ import annotations

import ntpath
from pathlib import PurePosixPath, PureWindowsPath
from typing import Any

import pytest
from brindlefen.distribution import client_manifest
from hypothesis import given
from hypothesis import strategies as st

from pinned_root.hostile import Own, raise_own
from pinned_root.outcomes import Value, outcome_of
from support.failures import fails_with

REFUSED = "secure Windows pinned roots require a local drive path; UNC roots are unsupported"


def split(path: Any) -> Any:
    return client_manifest._WindowsHandleFileSystem.split_root_path(path)


def model(path: str) -> tuple[str, tuple[str, ...]]:
    """The same, in the host's own words."""
    if path.startswith("\\\\?\\"):
        path = path[4:]
        if path.upper().startswith("UNC\\"):
            raise ValueError(REFUSED)
    drive, tail = ntpath.splitdrive(ntpath.abspath(path))
    if not drive or drive.startswith("\\\\") or len(drive) != 2:
        raise ValueError(REFUSED)
    components = tuple(piece for piece in tail.replace("/", "\\").split("\\") if piece)
    return "\\\\?\\" + drive + "\\", components


@pytest.mark.parametrize(
    ("path", "volume", "components"),
    [
        ("C:\\data\\x", "\\\\?\\C:\\", ("data", "x")),
        ("C:\\", "\\\\?\\C:\\", ()),
        ("C:/", "\\\\?\\C:\\", ()),
        ("C:\\\\", "\\\\?\\C:\\", ()),
        ("c:/a//b/", "\\\\?\\c:\\", ("a", "b")),
        ("z:\\a\\\\b\\", "\\\\?\\z:\\", ("a", "b")),
        ("C:\\a/b\\c/d", "\\\\?\\C:\\", ("a", "b", "c", "d")),
        ("C:\\a\\.\\b\\..\\c", "\\\\?\\C:\\", ("a", "c")),
        ("C:\\..\\..\\a", "\\\\?\\C:\\", ("a",)),
        ("C:\\with space\\é\\\U0001f600", "\\\\?\\C:\\", ("with space", "é", "\U0001f600")),
        ("\\\\?\\C:\\data\\x", "\\\\?\\C:\\", ("data", "x")),
        ("\\\\?\\C:\\", "\\\\?\\C:\\", ()),
        ("\\\\?\\C:/a//b/", "\\\\?\\C:\\", ("a", "b")),
        ("\\\\?\\C:\\UNC\\a", "\\\\?\\C:\\", ("UNC", "a")),
        ("C:\\UNC\\a", "\\\\?\\C:\\", ("UNC", "a")),
    ],
)
def test_a_path_on_a_drive_gives_the_volume_and_its_components(
    path: str, volume: str, components: tuple[str, ...]
) -> None:
    found = split(path)
    assert found == (volume, components)
    assert (type(found), type(found[0]), type(found[1])) == (tuple, str, tuple)
    assert found == model(path)


@pytest.mark.parametrize("path", ["C:\\data\\x", "C:\\", "d:/a//b/", "C:\\a\\..\\b"])
def test_the_prefix_of_a_long_path_changes_nothing(path: str) -> None:
    assert split("\\\\?\\" + path) == split(path)


@pytest.mark.parametrize(
    "path",
    [
        "\\\\?\\UNC\\server\\share",
        "\\\\?\\unc\\server\\share\\x",
        "\\\\?\\uNc\\",
        "\\\\server\\share",
        "\\\\server\\share\\x\\y",
        "//server/share/x",
        "\\\\.\\C:\\x",
        "\\\\.\\pipe\\x",
        "//?/C:/x",
        "\\\\?\\\\\\?\\C:\\x",
        "\\\\?\\\\\\server\\share\\x",
        "\\data\\x",
        "/data/x",
        "/",
    ],
)
def test_a_path_that_names_no_local_drive_is_refused(path: str) -> None:
    assert outcome_of(lambda: model(path)) == outcome_of(lambda: split(path))
    with fails_with(ValueError, REFUSED):
        split(path)


def current_directory(monkeypatch: pytest.MonkeyPatch, drive: str) -> None:
    monkeypatch.setattr(ntpath, "abspath", lambda path: ntpath.join(drive, path))


def test_the_word_of_a_server_is_known_in_any_case_of_its_letters(
    monkeypatch: pytest.MonkeyPatch,
) -> None:
    current_directory(monkeypatch, "D:\\here")
    for word in ("UNC", "unc", "Unc", "uNC"):
        with fails_with(ValueError, REFUSED):
            split(f"\\\\?\\{word}\\C:\\x")


@pytest.mark.parametrize(
    ("path", "components"),
    [
        ("x\\y", ("here", "x", "y")),
        ("UNC\\y", ("here", "UNC", "y")),
        ("\\\\?\\Volume{1234}\\x", ("here", "Volume{1234}", "x")),
        ("\\\\?\\UNC", ("here", "UNC")),
        ("\\\\?\\UNC/server/share", ("here", "UNC", "server", "share")),
        ("\\\\?\\UNCLE\\x", ("here", "UNCLE", "x")),
        ("", ("here",)),
        ("\\\\?\\", ("here",)),
    ],
)
def test_a_path_without_a_drive_is_resolved_against_the_current_directory(
    monkeypatch: pytest.MonkeyPatch, path: str, components: tuple[str, ...]
) -> None:
    current_directory(monkeypatch, "D:\\here")
    assert split(path) == ("\\\\?\\D:\\", components)


@pytest.mark.parametrize("drive", ["\\\\server\\share", "", "\\\\?\\C:\\"])
def test_a_current_directory_that_is_on_no_drive_is_refused(
    monkeypatch: pytest.MonkeyPatch, drive: str
) -> None:
    current_directory(monkeypatch, drive)
    with fails_with(ValueError, REFUSED):
        split("x")


@pytest.mark.parametrize(
    "parts", [("", "\\x"), ("\\\\", "x"), ("\\\\a", "\\x"), ("CD:", "\\x"), (":", "\\x")]
)
def test_only_a_drive_of_two_characters_passes(
    monkeypatch: pytest.MonkeyPatch, parts: tuple[str, str]
) -> None:
    monkeypatch.setattr(ntpath, "splitdrive", lambda path: parts)
    with fails_with(ValueError, REFUSED):
        split("C:\\x")


@pytest.mark.parametrize("kind", [PureWindowsPath, PurePosixPath])
def test_a_path_like_value_is_read_once(kind: type[Any]) -> None:
    assert split(kind("C:\\data/x")) == ("\\\\?\\C:\\", ("data", "x"))


def test_the_text_form_is_the_path_s_own() -> None:
    class Asked:
        times = 0

        def __fspath__(self) -> str:
            self.times += 1
            return "C:\\asked"

    asked = Asked()
    assert split(asked) == ("\\\\?\\C:\\", ("asked",))
    assert asked.times == 1


class LoudPath:
    __fspath__ = raise_own


def test_a_path_that_refuses_to_be_read_raises_its_own() -> None:
    with fails_with(Own, "mine"):
        split(LoudPath())


@pytest.mark.parametrize("path", [None, 5, object(), ["C:\\x"]])
def test_what_is_no_path_is_refused_in_the_host_s_words(path: object) -> None:
    kind = type(path).__name__
    with fails_with(TypeError, f"expected str, bytes or os.PathLike object, not {kind}"):
        split(path)


def test_a_path_of_bytes_is_not_taken_for_text() -> None:
    with pytest.raises(TypeError):
        split(b"C:\\x")


class LyingText(str):
    """Text that answers the questions about itself as it likes."""

    def startswith(self, *args: object) -> Any:
        return True

    def upper(self) -> Any:
        return 5

    def __getitem__(self, key: object) -> Any:
        return raise_own()


def test_text_that_lies_about_itself_ends_in_a_split_or_a_refusal() -> None:
    outcome = outcome_of(lambda: split(LyingText("C:\\x")))
    if isinstance(outcome, Value):
        assert outcome.value == ("\\\\?\\C:\\", ("x",))


def test_a_nul_and_a_lone_surrogate_pass_through() -> None:
    assert split("C:\\a\0b\\\ud800") == ("\\\\?\\C:\\", ("a\0b", "\ud800"))


@given(st.text("\\/:.?CDaUNC ", max_size=14) | st.text(max_size=8).map("C:\\".__add__))
def test_the_split_is_that_of_the_model(path: str) -> None:
    assert outcome_of(lambda: split(path)) == outcome_of(lambda: model(path))
