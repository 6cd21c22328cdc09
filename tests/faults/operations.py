"""Each operation of a pinned root as a table: its calls in order, with each failure's outcome."""

from __future__ import annotations

import os
from collections.abc import Callable, Iterator
from contextlib import AbstractContextManager, contextmanager
from dataclasses import dataclass, field
from pathlib import Path
from typing import Any

from brindlefen.distribution import client_manifest

from faults.layout import CONTENT, LABEL, LEAF, down, from_top, make_tree, names_of, pinned
from faults.outcomes import (
    OPEN_FILE,
    TOP_WALK,
    Rule,
    Rules,
    Translation,
    absent_file,
    component_walk,
    fine_if_absent,
    host,
    leaf_look,
    leaf_open,
    no_file,
    parent_walk,
    translated,
    unsafe_root,
)

Row = tuple[str, Rule]
PLACE = f"root*/{LEAF}"
PARENT, NAME = PLACE.rsplit("/", 1)
FOUND = os.path.dirname(LEAF)


@dataclass
class Prepared:
    """An operation on a fresh tree, ready to run."""

    act: Callable[[], object]
    table: list[Row]
    names: dict[int, str] = field(default_factory=dict)
    release: Callable[[Any], None] = lambda result: None
    has_host_reader: bool = False


Operation = Callable[[Path], AbstractContextManager[Prepared]]
OPERATIONS: dict[str, Operation] = {}


def _operation(function: Callable[[Path], Iterator[Prepared]]) -> Operation:
    operation = contextmanager(function)
    OPERATIONS[function.__name__.lstrip("_")] = operation
    return operation


def _rows(lines: list[str], rules: Rules) -> list[Row]:
    return [(line, rules[line.split(" ")[0]]) for line in lines]


def _top_walk(path: Path) -> list[Row]:
    return _rows(from_top(path), TOP_WALK)


def _translated(rows: list[Row], translate: Translation) -> list[Row]:
    return [(line, translated(rule, translate)) for line, rule in rows]


def _root_proof(path: Path) -> list[Row]:
    looks = _file("fstat root", f"fstat {path}", f"close {path}")
    return _translated(_top_walk(path), unsafe_root) + looks


def _component_walk(start: str, path: str) -> list[Row]:
    lines = [f"dup {start}", *down(f"{start}*", *path.split("/"))]
    return _rows(lines, component_walk(path))


def _leaf_walk() -> list[Row]:
    return _rows(["dup root", *down("root*", *FOUND.split("/"))], parent_walk(LEAF))


def _leaf_open() -> list[Row]:
    lines = [f"openat {PARENT} {NAME} leaf", f"fstat {PLACE}", f"close {PARENT}"]
    return _leaf_walk() + _rows(lines, leaf_open(LEAF))


def _path_proof() -> list[Row]:
    lines = [f"fstatat {PARENT} {NAME} nofollow", f"close {PARENT}"]
    return _leaf_walk() + _rows(lines, leaf_look(LEAF))


def _file(*lines: str) -> list[Row]:
    return _rows(list(lines), OPEN_FILE)


def _read(root: Path) -> list[Row]:
    read = f"read {PLACE} {len(CONTENT)} bytes"
    return [
        *_leaf_open(),
        *_file(f"fstat {PLACE}", read, f"fstat {PLACE}"),
        *_path_proof(),
        *_root_proof(root),
        *_file(f"close {PLACE}"),
    ]


@_operation
def _pin(root: Path) -> Iterator[Prepared]:
    make_tree(root)
    yield Prepared(
        act=lambda: client_manifest.PinnedRoot(root),
        table=_top_walk(root),
        release=lambda result: result.close(),
    )


@_operation
def _pin_and_create(root: Path) -> Iterator[Prepared]:
    make_tree(root)
    lines = ["open / directory"]
    here = "/"
    for part in root.parts[1:]:
        lines += [f"mkdirat {here} {part} 755 -> EEXIST", *down(here, part)]
        here = f"{here.rstrip('/')}/{part}"
    lines += [f"mkdirat {here} new 755", f"fsync {here}", *down(here, "new")]
    yield Prepared(
        act=lambda: client_manifest.PinnedRoot(root / "new", create=True),
        table=_rows(lines, TOP_WALK),
        release=lambda result: result.close(),
    )


@_operation
def _assert_root_unchanged(root: Path) -> Iterator[Prepared]:
    with pinned(make_tree(root)) as reader:
        yield Prepared(reader.assert_root_unchanged, _root_proof(root), names_of(reader))


@_operation
def _assert_contained_root_unchanged(root: Path) -> Iterator[Prepared]:
    with pinned(make_tree(root)) as reader:
        child = reader.open_contained_root(FOUND, label=LABEL)
        place = f"anchor*/{FOUND}"
        table = _translated(_component_walk("anchor", FOUND), unsafe_root)
        table += _file("fstat root", f"fstat {place}", f"close {place}")
        yield Prepared(child.assert_root_unchanged, table, names_of(child))
        child.close()


@_operation
def _open_contained_root(root: Path) -> Iterator[Prepared]:
    child_place = f"root**/{FOUND}"
    again = [
        line if line != f"fstat {child_place}" else f"{line}'"
        for line in ["dup root*", *down("root**", *FOUND.split("/"))]
    ]
    child_proof = _translated(_rows(again, component_walk(FOUND)), unsafe_root)
    child_proof += _file(f"fstat {child_place}", f"fstat {child_place}'", f"close {child_place}'")
    with pinned(make_tree(root)) as reader:
        yield Prepared(
            act=lambda: reader.open_contained_root(FOUND, label=LABEL),
            table=[
                *_root_proof(root),
                ("dup root", host),
                *_component_walk("root*", FOUND),
                *child_proof,
            ],
            names=names_of(reader),
            release=lambda result: result.close(),
        )


@_operation
def _open_directory_components(root: Path) -> Iterator[Prepared]:
    with pinned(make_tree(root)) as reader:
        yield Prepared(
            act=lambda: reader._open_directory_components(
                reader._descriptor, tuple(FOUND.split("/")), label=LABEL
            ),
            table=_component_walk("root", FOUND),
            names=names_of(reader),
            release=lambda result: os.close(result),
        )


@_operation
def _open_parent(root: Path) -> Iterator[Prepared]:
    with pinned(make_tree(root)) as reader:
        yield Prepared(
            act=lambda: reader._open_parent(LEAF, label=LABEL, create=False),
            table=_leaf_walk(),
            names=names_of(reader),
            release=lambda result: os.close(result[0]),
        )


@_operation
def _open_parent_and_create(root: Path) -> Iterator[Prepared]:
    path = "sub/new/leaf"
    lines = [
        "dup root",
        "mkdirat root* sub 755 -> EEXIST",
        *down("root*", "sub"),
        "mkdirat root*/sub new 755",
        "fsync root*/sub",
        *down("root*/sub", "new"),
    ]
    with pinned(make_tree(root)) as reader:
        yield Prepared(
            act=lambda: reader._open_parent(path, label=LABEL, create=True),
            table=_rows(lines, parent_walk(path)),
            names=names_of(reader),
            release=lambda result: os.close(result[0]),
        )


@_operation
def _assert_path_matches_regular_file(root: Path) -> Iterator[Prepared]:
    with pinned(make_tree(root)) as reader:
        expected_stat = os.stat(root / LEAF)
        yield Prepared(
            act=lambda: reader._assert_path_matches_regular_file(
                LEAF, label=LABEL, expected_stat=expected_stat
            ),
            table=_path_proof(),
            names=names_of(reader),
        )


@_operation
def _assert_replaceable_leaf(root: Path) -> Iterator[Prepared]:
    with pinned(make_tree(root)) as reader:
        yield Prepared(
            act=lambda: reader._assert_replaceable_leaf(
                reader._descriptor, "absent", safe_path="absent", allow_replace=False
            ),
            table=[("fstatat root absent nofollow -> ENOENT", fine_if_absent)],
            names=names_of(reader),
        )


@_operation
def _open_regular_file_for_read(root: Path) -> Iterator[Prepared]:
    with pinned(make_tree(root)) as reader:
        yield Prepared(
            act=lambda: reader.open_regular_file_for_read(LEAF, label=LABEL),
            table=_leaf_open(),
            names=names_of(reader),
            release=lambda result: result.close(),
            has_host_reader=True,
        )


@_operation
def _read_regular_file(root: Path) -> Iterator[Prepared]:
    with pinned(make_tree(root)) as reader:
        yield Prepared(
            act=lambda: reader.read_regular_file(LEAF, label=LABEL),
            table=_translated(_read(root), absent_file(LEAF)),
            names=names_of(reader),
        )


@_operation
def _read_regular_file_if_present(root: Path) -> Iterator[Prepared]:
    with pinned(make_tree(root)) as reader:
        yield Prepared(
            act=lambda: reader.read_regular_file_if_present(LEAF, label=LABEL),
            table=_translated(_read(root), no_file),
            names=names_of(reader),
        )


@_operation
def _read_absent_file_if_present(root: Path) -> Iterator[Prepared]:
    path = "sub/gone"
    lines = ["dup root", *down("root*", "sub")]
    leaf = ["openat root*/sub gone leaf -> ENOENT", "close root*/sub"]
    table = _rows(lines, parent_walk(path)) + _rows(leaf, leaf_open(path))
    with pinned(make_tree(root)) as reader:
        yield Prepared(
            act=lambda: reader.read_regular_file_if_present(path, label=LABEL),
            table=_translated(table, no_file),
            names=names_of(reader),
        )


@_operation
def _hash_regular_file(root: Path) -> Iterator[Prepared]:
    table = _read(root)
    consumed = table.index(next(row for row in table if row[0].startswith("read ")))
    table[consumed + 1 : consumed + 1] = _file(f"fstat {PLACE}")
    with pinned(make_tree(root)) as reader:
        yield Prepared(
            act=lambda: reader.hash_regular_file(LEAF, label=LABEL),
            table=table,
            names=names_of(reader),
        )


@_operation
def _stat_regular_file(root: Path) -> Iterator[Prepared]:
    with pinned(make_tree(root)) as reader:
        yield Prepared(
            act=lambda: reader.stat_regular_file(LEAF, label=LABEL),
            table=[
                *_leaf_open(),
                *_file(f"fstat {PLACE}"),
                *_path_proof(),
                *_root_proof(root),
                *_file(f"close {PLACE}"),
            ],
            names=names_of(reader),
        )


@_operation
def _assert_open_regular_file_identity(root: Path) -> Iterator[Prepared]:
    with pinned(make_tree(root)) as reader:
        identity = reader.hash_regular_file(LEAF, label=LABEL)
        with reader.open_regular_file_for_read(LEAF, label=LABEL) as file:
            yield Prepared(
                act=lambda: reader.assert_open_regular_file_identity(
                    file, LEAF, label=LABEL, identity=identity
                ),
                table=[*_file("fstat file"), *_path_proof(), *_root_proof(root)],
                names={**names_of(reader), file.fileno(): "file"},
            )


@_operation
def _close(root: Path) -> Iterator[Prepared]:
    with pinned(make_tree(root)) as reader:
        yield Prepared(reader.close, [("close root", host)], names_of(reader))


@_operation
def _close_contained(root: Path) -> Iterator[Prepared]:
    with pinned(make_tree(root)) as reader:
        child = reader.open_contained_root(FOUND, label=LABEL)
        table: list[Row] = [("close root", host), ("close anchor", host)]
        yield Prepared(child.close, table, names_of(child))
