"""Proves which texts are exact relative paths, and in which words all others are refused."""

from __future__ import annotations

from pathlib import Path, PurePosixPath
from typing import Any

import pytest
from brindlefen.distribution import client_manifest

from support.failures import fails_with

validate = client_manifest.validate_manifest_relative_path

NO_TEXT = "manifest relative path must be a string"
EXACT = "manifest relative path must be an exact relative POSIX path"
SEGMENTS = "manifest relative path must not contain empty, dot, or parent segments"

# Every character that the host counts as whitespace.
WHITESPACE = [chr(point) for point in range(0x110000) if chr(point).isspace()]

# Characters that look like whitespace, or have no width, and are none to the host.
NO_WHITESPACE = ["\u200b", "\u200c", "\u2060", "\ufeff", "\u180e", "\xad", "\x1b", "\x7f"]

LETTERS = [
    "C",
    "z",
    "\xe9",
    "\xaa",
    "\u0410",
    "\u4e2d",
    "\u05d0",
    "\u01c5",
    "\u02b0",
    "\U00010400",
    "\U0001d400",
    "\U00020000",
]

NO_LETTERS = [
    "1",
    "_",
    "-",
    "\xb2",
    "\u0661",
    "\u2160",
    "\u2460",
    "\u0300",
    "\u20ac",
    "\ud800",
    "\U0001f600",
    ":",
]

ACCEPTED = [
    "a",
    "a/b.txt",
    "a b/c",
    "1:/x",
    "ab:c",
    "a\nb",
    "a /b",
    "a/ b",
    "a /b/ c",
    "a.",
    "a./b",
    ".a",
    "...",
    "a/...",
    "..a/b",
    "a/b..",
    ". ./a",
    ":",
    ":a",
    "a/c:",
    "a/c:/x",
    "aC:/x",
    "~",
    "~/a",
    "a?b*c|d<e>",
    "con",
    "nul.txt",
    "A/a",
    "\xe9",
    "e\u0301",
    "\u2025",
    "a\u2215b",
    "\uff0fa",
    "\uff0ea",
    "a\uff3cb",
    "\ud800",
    "\U0001f600/\U0001f600",
    "a" * 100_000,
    "/".join(["a"] * 50_000),
    "_control/signals_index." + "0" * 64 + ".json",
]

INEXACT = [
    "",
    " ",
    " a",
    "a ",
    "a\n",
    "\na",
    "a/b\r\n",
    "/",
    "//",
    "/a",
    "a/",
    "a/b/",
    "a//",
    "/..",
    "../",
    "./",
    "C:",
    "c:/x",
    "C:x",
    "C:/../x",
    "a:b",
    "z:\\",
    "a\\b",
    "\\",
    "\\\\host\\share",
    "a\\",
    "..\\a",
    "a/../b\\c",
    "\x00",
    "a\x00",
    "a\x00b",
    "a/../b\x00",
    "a//b\x00",
]

BAD_SEGMENTS = [
    ".",
    "..",
    "./a",
    "../a",
    "a/.",
    "a/..",
    "a/./b",
    "a/../b",
    "a//b",
    "a///b",
    "a/b/../../..",
    "1:/..",
    "../..",
    "a b/../c",
    "a\n/..",
    "..//a",
]


class Text(str):
    """A caller's own kind of text."""


@pytest.mark.parametrize("path", ACCEPTED, ids=lambda path: ascii(path[:20]))
def test_an_exact_path_is_returned_as_it_came(path: str) -> None:
    assert validate(path) is path


@pytest.mark.parametrize("path", INEXACT, ids=ascii)
def test_an_inexact_path_is_refused(path: str) -> None:
    with fails_with(ValueError, EXACT):
        validate(path)


@pytest.mark.parametrize("path", BAD_SEGMENTS, ids=ascii)
def test_a_bad_segment_is_refused(path: str) -> None:
    with fails_with(ValueError, SEGMENTS):
        validate(path)


@pytest.mark.parametrize(
    "value",
    [
        None,
        0,
        1.5,
        True,
        b"a",
        bytearray(b"a"),
        Path("a"),
        PurePosixPath("a/b"),
        ["a"],
        ("a",),
        {"a": 1},
        object(),
        str,
    ],
    ids=lambda value: type(value).__name__,
)
def test_only_text_is_taken(value: object) -> None:
    with fails_with(TypeError, NO_TEXT):
        validate(value)


@pytest.mark.parametrize("space", WHITESPACE, ids=ascii)
def test_no_whitespace_stands_at_an_edge(space: str) -> None:
    for path in (space, space + "a", "a" + space, f"{space}a{space}", f"a/b{space}"):
        with fails_with(ValueError, EXACT):
            validate(path)
    for path in (f"a{space}b", f"a{space}/b", f"a/{space}b", f"a/{space}/b"):
        assert validate(path) is path


@pytest.mark.parametrize("character", NO_WHITESPACE, ids=ascii)
def test_what_is_no_whitespace_may_stand_at_an_edge(character: str) -> None:
    assert not character.isspace()
    for path in (character, character + "a", "a" + character):
        assert validate(path) is path


@pytest.mark.parametrize("letter", LETTERS, ids=ascii)
def test_a_letter_before_a_colon_is_a_drive(letter: str) -> None:
    assert letter.isalpha()
    for path in (f"{letter}:", f"{letter}:a", f"{letter}:/a/..", f"{letter}::"):
        with fails_with(ValueError, EXACT):
            validate(path)
    for path in (letter, f"{letter}a:", f"a/{letter}:", f"1{letter}:"):
        assert validate(path) is path


@pytest.mark.parametrize("character", NO_LETTERS, ids=ascii)
def test_what_is_no_letter_before_a_colon_is_no_drive(character: str) -> None:
    assert not character.isalpha()
    for path in (f"{character}:", f"{character}:a", f"{character}:/a"):
        assert validate(path) is path


def test_every_one_character_path_is_judged_by_the_hosts_classes() -> None:
    for point in range(0x3000):
        character = chr(point)
        inexact = character.isspace() or character in "/\\\0"
        if inexact or character == ".":
            with fails_with(ValueError, EXACT if inexact else SEGMENTS):
                validate(character)
        else:
            assert validate(character) is character


def test_every_drive_of_one_letter_is_judged_by_the_hosts_classes() -> None:
    for point in range(0x3000):
        path = f"{chr(point)}:"
        first = path[0]
        if first.isspace() or first in "/\\\0" or first.isalpha():
            with fails_with(ValueError, EXACT):
                validate(path)
        else:
            assert validate(path) is path


@pytest.mark.parametrize("path", ["a", "a/b", "\U0001f600", "1:/x"])
def test_a_subclass_of_text_is_returned_as_it_came(path: str) -> None:
    text = Text(path)
    assert validate(text) is text


@pytest.mark.parametrize(("path", "message"), [("", EXACT), ("a\\", EXACT), ("a/..", SEGMENTS)])
def test_a_subclass_of_text_is_judged_by_its_value(path: str, message: str) -> None:
    with fails_with(ValueError, message):
        validate(Text(path))


def test_the_class_is_judged_ahead_of_the_content() -> None:
    class Strange:
        """Looks empty, and is no text."""

        def __bool__(self) -> bool:
            raise AssertionError("was asked for its truth")

        def __len__(self) -> int:
            raise AssertionError("was asked for its length")

        def strip(self) -> Any:
            raise AssertionError("was stripped")

    with fails_with(TypeError, NO_TEXT):
        validate(Strange())
