"""Leak scenarios of the operations on directories: cleanups, lists, new directories, removals."""

from __future__ import annotations

import os
from collections.abc import Callable, Iterator
from typing import Any

from leaks.scenarios import Hostile, Own
from leaks.workplace import FILE, Ends, Work, closed, scenarios_of

MANY = 30


def _breaking_off() -> Iterator[str]:
    yield FILE
    raise Own("no more paths")


# --- Cleanups


def _by_suffix(suffix: Any, preserved: Any = ()) -> Work:
    return lambda root: root.remove_regular_files_with_suffix(
        suffix, preserve_relative_paths=preserved
    )


def _by_prefix(prefixes: Any, preserved: Any = ()) -> Work:
    return lambda root: root.remove_regular_files_in_prefixes(
        prefixes, preserve_relative_paths=preserved
    )


def _filled(work: Work) -> Work:
    """Does the work after many files have come to lie three directories down."""

    def fill_first(root: Any) -> None:
        directory = root.path / "sub" / "deep" / "deeper"
        directory.mkdir()
        for number in range(MANY):
            (directory / f"{number}.tmp").touch()
        work(root)

    return fill_first


def _with_links(work: Work) -> Work:
    """Does the work after a link has come to lie two directories down."""

    def link_first(root: Any) -> None:
        (root.path / "sub" / "deep" / "link.tmp").symlink_to(FILE)
        work(root)

    return link_first


def _with_fifos(work: Work) -> Work:
    def make_first(root: Any) -> None:
        os.mkfifo(root.path / "sub" / "deep" / "fifo.tmp")
        work(root)

    return make_first


def _preserving(operate: Callable[[Any], Work]) -> Ends:
    """What can be given to be preserved; reading it comes before all removals."""
    return [
        ("a set preserved", operate({FILE, "other.bin"}), None),
        ("a generator preserved", lambda root: operate(iter([FILE]))(root), None),
        ("an unfit path preserved", operate([FILE, "../a"]), ValueError),
        ("no text preserved", operate([FILE, 5]), TypeError),
        ("nothing to iterate", operate(None), TypeError),
        ("an iteration that fails", lambda root: operate(_breaking_off())(root), Own),
    ]


# --- Directories


def _ensure(path: Any) -> Work:
    return lambda root: root.ensure_directory(path)


def _remove(path: Any, *, missing_ok: Any = False) -> Work:
    return lambda root: root.remove_directory_tree(path, missing_ok=missing_ok)


ENDS: dict[str, Ends] = {
    "clean up by suffix": [
        ("some", _by_suffix(".bin"), None),
        ("many", _filled(_by_suffix(".tmp")), None),
        ("none", _by_suffix(".none"), None),
        ("empty", _by_suffix(""), ValueError),
        ("a slash", _by_suffix("/a"), ValueError),
        ("no text", _by_suffix(5), ValueError),
        ("a link", _with_links(_by_suffix(".tmp")), ValueError),
        ("a fifo", _with_fifos(_by_suffix(".tmp")), ValueError),
        ("closed", closed(_by_suffix(".bin")), RuntimeError),
        *_preserving(lambda preserved: _by_suffix(".bin", preserved)),
    ],
    "clean up by prefix": [
        ("some", _by_prefix(("sub", "absent/")), None),
        ("many", _filled(_by_prefix(("sub/deep",))), None),
        ("none", _by_prefix(("absent",)), None),
        ("no prefixes", _by_prefix(()), None),
        ("an unfit prefix", _by_prefix(("sub", "/")), ValueError),
        ("nothing to iterate", _by_prefix(5), TypeError),
        ("a link", _with_links(_by_prefix(("sub",))), ValueError),
        ("a fifo", _with_fifos(_by_prefix(("sub",))), ValueError),
        ("closed", closed(_by_prefix(("sub",))), RuntimeError),
        *_preserving(lambda preserved: _by_prefix(("sub",), preserved)),
    ],
    "list": [
        ("some", lambda root: root.list_directory_names(), None),
        ("closed", closed(lambda root: root.list_directory_names()), RuntimeError),
    ],
    "make directories": [
        ("new ones", _ensure("new/newer"), None),
        ("what exists", _ensure("sub/deep"), None),
        ("over a file", _ensure(FILE), ValueError),
        ("beneath a file", _ensure("other.bin/new"), ValueError),
        ("over a link", _ensure("linked"), ValueError),
        ("beneath a link", _ensure("linked/new"), ValueError),
        ("a name too long", _ensure("new/" + "n" * 256), OSError),
        ("a name that has no bytes", _ensure("new/\ud800"), UnicodeEncodeError),
        ("no text", _ensure(None), TypeError),
        ("closed", closed(_ensure("sub")), RuntimeError),
    ],
    "remove a tree": [
        ("whole", _remove("sub"), None),
        ("many files", _filled(_remove("sub")), None),
        ("missing and fine", _remove("absent", missing_ok=True), None),
        ("no parent and fine", _remove("absent/tree", missing_ok=True), None),
        ("missing", _remove("absent"), FileNotFoundError),
        ("no parent", _remove("absent/tree"), FileNotFoundError),
        ("a link", _remove("linked", missing_ok=True), ValueError),
        ("a file", _remove("other.bin"), ValueError),
        ("beneath a link", _remove("linked/deep"), ValueError),
        ("a link within", _with_links(_remove("sub")), ValueError),
        ("a fifo within", _with_fifos(_remove("sub")), ValueError),
        ("dots", _remove("sub/.."), ValueError),
        ("no text", _remove(None), TypeError),
        ("a name that has no bytes", _remove("\ud800"), UnicodeEncodeError),
        ("closed", closed(_remove("sub")), RuntimeError),
        ("truth that fails", _remove("absent", missing_ok=Hostile()), Own),
    ],
}
SCENARIOS = scenarios_of(ENDS)
