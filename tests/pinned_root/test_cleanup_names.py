"""Names of any bytes are cleaned, told and refused as the host spells them, in its text order."""

from __future__ import annotations

from pathlib import Path

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.cleanups import CLEANUPS, by_prefix, by_suffix
from pinned_root.trees import FIFO, Entry, contents, link_to, plant
from support.failures import fails_with

EACH = pytest.mark.parametrize("walk", CLEANUPS)

NAMES = [
    "plain",
    "Z",
    "~",
    "é",
    "e\u0301",
    "\u00df",
    "\uffee",
    "\U0001f600",
    "\udcff\udcfe",
    "\udce9",
    "a\nb",
    "a b",
    "\x01",
    "-",
    "*",
    "a:b",
    "\\",
    "{x}",
    "%s",
    "trailing.",
]


@EACH
def test_results_stand_in_the_order_of_the_hosts_text(
    root: PinnedRoot, tree: Path, walk: str
) -> None:
    """A name that is no UTF-8 sorts by its escapes: after most, but not after all, letters."""
    paths = [f"yard/{name}/{name}.tmp" for name in NAMES] + [f"yard/{name}.tmp" for name in NAMES]
    plant(tree, dict.fromkeys(paths, b""))
    assert CLEANUPS[walk](root, ()) == tuple(sorted(paths))
    assert [path for path in contents(tree) if path.endswith(".tmp")] == []


@EACH
def test_names_of_any_kind_are_preserved(root: PinnedRoot, tree: Path, walk: str) -> None:
    """All but one with a backslash, which no contained path can hold."""
    paths = {f"yard/{name}.tmp" for name in NAMES}
    plant(tree, dict.fromkeys(paths, b""))
    assert CLEANUPS[walk](root, paths - {"yard/\\.tmp"}) == ("yard/\\.tmp",)
    with fails_with(ValueError, "manifest relative path must be an exact relative POSIX path"):
        CLEANUPS[walk](root, paths)


@EACH
@pytest.mark.parametrize("name", ["\udcff\udcfe", "a\nb", "{x}", "%s", "\\"])
def test_a_name_of_any_kind_stands_in_a_refusal_as_it_is(
    root: PinnedRoot, tree: Path, walk: str, name: str
) -> None:
    path = f"yard/{name}/{name}.tmp"
    plant(tree, {path: FIFO})
    text = f"contained cleanup target is a symlink or non-regular file: {path}"
    with fails_with(ValueError, text):
        CLEANUPS[walk](root, ())


def test_the_cause_of_a_refusal_names_the_entry_with_its_escapes(
    root: PinnedRoot, tree: Path
) -> None:
    plant(tree, {"yard/\udcff": link_to("nowhere")})
    text = "contained cleanup target is a symlink or unsafe file: yard/\udcff"
    with fails_with(ValueError, text, cause=OSError) as caught:
        by_prefix(root, ("yard",))
    assert isinstance(caught.error.__cause__, OSError)
    assert caught.error.__cause__.filename == "\udcff"


SUFFIXES: list[tuple[str, dict[str, Entry], tuple[str, ...]]] = [
    ("\udcff", {"a\udcff": b"", "a\udcfe": b""}, ("a\udcff",)),
    ("\udca9", {"x\udca9": b"", "é": b""}, ("x\udca9",)),
    ("\u0301", {"e\u0301": b"", "é": b""}, ("e\u0301",)),
    ("é", {"e\u0301": b"", "xé": b""}, ("xé",)),
    ("\n", {"a\n": b"", "a\nb": b""}, ("a\n",)),
    (" ", {"a ": b"", "a": b""}, ("a ",)),
    ("b.\udcffc", {"ab.\udcffc": b"", "ab.c": b""}, ("ab.\udcffc",)),
]


@pytest.mark.parametrize(("suffix", "entries", "removed"), SUFFIXES)
def test_a_suffix_is_compared_as_text_and_not_as_bytes(
    root: PinnedRoot,
    tree: Path,
    suffix: str,
    entries: dict[str, Entry],
    removed: tuple[str, ...],
) -> None:
    """The last byte of a letter is no suffix of it; one accent has two spellings."""
    plant(tree, entries)
    assert by_suffix(root, suffix) == removed


@pytest.mark.parametrize("name", ["\udcff\udcfe", "é", "a\nb", "a b", "$HOME", "*", "~"])
def test_a_prefix_is_compared_as_text(root: PinnedRoot, tree: Path, name: str) -> None:
    plant(tree, {f"{name}/{name}/file": b"", f"{name}x/file": b"", "plain/file": b""})
    assert by_prefix(root, (name,)) == (f"{name}/{name}/file",)
    plant(tree, {f"{name}/{name}/file": b"", f"{name}/other/file": b""})
    assert by_prefix(root, (f"{name}/{name}/",)) == (f"{name}/{name}/file",)


def test_a_prefix_that_no_name_can_have_removes_nothing(root: PinnedRoot) -> None:
    assert by_prefix(root, ("\ud800", "n" * 300, "sub/\ud800")) == ()


@EACH
def test_escapes_that_spell_a_letter_are_not_that_letter(
    root: PinnedRoot, tree: Path, walk: str
) -> None:
    """They would lead to the same name on the disk; but names are compared as text."""
    plant(tree, {"yard/é.tmp": b""})
    assert by_suffix(root, "\udcc3\udca9.tmp") == ()
    plant(tree, {"é/x": b""})
    assert by_prefix(root, ("\udcc3\udca9",)) == ()
    assert CLEANUPS[walk](root, {"yard/\udcc3\udca9.tmp"}) == ("yard/é.tmp",)
