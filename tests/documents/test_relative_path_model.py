"""Proves over generated texts that the judge of paths agrees with a model of its own rules."""

from __future__ import annotations

import posixpath
import re
from pathlib import PurePosixPath

from brindlefen.distribution import client_manifest
from hypothesis import example, given, settings
from hypothesis import strategies as st

from support.failures import fails_with

validate = client_manifest.validate_manifest_relative_path

EXACT = "manifest relative path must be an exact relative POSIX path"
SEGMENTS = "manifest relative path must not contain empty, dot, or parent segments"

# Whitespace for a pattern is what it is for the host's text, so the edges can be told by one.
INEXACT_RE = re.compile(r"\A\Z|\A[\s/]|[\s/]\Z|[\\\0]")
BAD_SEGMENT_RE = re.compile(r"(?:\A|/)\.{0,2}(?:/|\Z)")

PIECES = [
    "a",
    "b",
    "Z",
    "1",
    "\xe9",
    "\u4e2d",
    "\u0300",
    "\u0661",
    "\U0001f600",
    "\ud800",
    "/",
    "/",
    "/",
    ".",
    ".",
    "..",
    ":",
    ":",
    "\\",
    "\0",
    " ",
    "\t",
    "\n",
    "\x1c",
    "\x85",
    "\xa0",
    "\u2003",
    "\u3000",
    "\u200b",
    "\ufeff",
]

pieces = st.lists(st.sampled_from(PIECES), max_size=8).map("".join)
any_text = st.text(st.characters(blacklist_categories=()), max_size=6)
segments = st.text("ab.: ", min_size=1, max_size=4)
near_paths = st.lists(segments, min_size=1, max_size=5).map("/".join)


def message_for(text: str) -> str | None:
    """What the rules say of a text, found by patterns in place of the steps."""
    if INEXACT_RE.search(text) or (text[1:2] == ":" and text[0].isalpha()):
        return EXACT
    return SEGMENTS if BAD_SEGMENT_RE.search(text) else None


@settings(max_examples=600)
@given(pieces | any_text | near_paths)
@example("")
@example("a:")
@example(" a:")
@example("\U00010400:")
def test_a_text_is_judged_as_the_patterns_say(text: str) -> None:
    message = message_for(text)
    if message is None:
        assert validate(text) is text
    else:
        with fails_with(ValueError, message):
            validate(text)


@settings(max_examples=300)
@given(near_paths | pieces)
def test_an_accepted_path_is_its_own_only_spelling(text: str) -> None:
    try:
        path = validate(text)
    except ValueError:
        return
    assert posixpath.normpath(path) == path
    assert str(PurePosixPath(path)) == path
    assert not PurePosixPath(path).is_absolute()
    assert ".." not in PurePosixPath(path).parts
    assert "/".join(path.split("/")) == path


@given(near_paths, near_paths)
def test_a_joined_path_is_accepted_if_both_halves_are(left: str, right: str) -> None:
    for half in (left, right):
        try:
            validate(half)
        except ValueError:
            return
    joined = f"{left}/{right}"
    assert validate(joined) is joined


class Text(str):
    """A caller's own kind of text."""


@given(pieces)
def test_a_subclass_of_text_is_judged_like_the_text(text: str) -> None:
    own = Text(text)
    message = message_for(text)
    if message is None:
        assert validate(own) is own
    else:
        with fails_with(ValueError, message):
            validate(own)
