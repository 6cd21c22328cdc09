"""Makes JSON documents as trees, and says from the tree what a strict parse must answer."""

from __future__ import annotations

import json
from dataclasses import dataclass

from hypothesis import strategies as st

CONSTANT = "constant"
DUPLICATE = "duplicate"


@dataclass(frozen=True)
class Scalar:
    """A text, number or word, as written."""

    text: str


@dataclass(frozen=True)
class Constant:
    """A non-finite constant, as written."""

    text: str


@dataclass(frozen=True)
class Array:
    """Items in order."""

    items: tuple[Node, ...]


@dataclass(frozen=True)
class Object:
    """Members in order, keys repeated or not; each key with its spelling."""

    members: tuple[tuple[str, str, Node], ...]


Node = Scalar | Constant | Array | Object


def written(node: Node, space: str) -> str:
    """The document text of a tree, with `space` wherever the grammar allows it."""
    if isinstance(node, Scalar | Constant):
        return node.text
    if isinstance(node, Array):
        inner = f"{space},{space}".join(written(item, space) for item in node.items)
        return f"[{space}{inner}{space}]"
    inner = f"{space},{space}".join(
        f"{spelling}{space}:{space}{written(value, space)}" for _, spelling, value in node.members
    )
    return f"{{{space}{inner}{space}}}"


def first_event(node: Node) -> tuple[str, str] | None:
    """The first constant met, or object closed over a repeated key, from left to right."""
    if isinstance(node, Scalar):
        return None
    if isinstance(node, Constant):
        return CONSTANT, node.text
    children = node.items if isinstance(node, Array) else [value for *_, value in node.members]
    for child in children:
        event = first_event(child)
        if event is not None:
            return event
    if isinstance(node, Object):
        keys = [key for key, *_ in node.members]
        for place, key in enumerate(keys):
            if key in keys[:place]:
                return DUPLICATE, key
    return None


def _spellings(key: str) -> st.SearchStrategy[tuple[str, str]]:
    escaped = "".join(f"\\u{ord(unit):04x}" for unit in key)
    return st.sampled_from([(key, json.dumps(key)), (key, f'"{escaped}"')])


_keys = st.sampled_from(["", "a", "b", "A", "\n"]).flatmap(_spellings)

_scalars = st.one_of(
    st.sampled_from(["true", "false", "null", "0", "-0", "1.0", "1E+2", "1e999", "-0.0", '"NaN"']),
    st.integers().map(str),
    st.floats(allow_nan=False, allow_infinity=False).map(repr),
    st.text(max_size=5).map(json.dumps),
    st.text(st.characters(blacklist_categories=()), max_size=3).map(json.dumps),
).map(Scalar)

_constants = st.sampled_from(["NaN", "Infinity", "-Infinity"]).map(Constant)


def _containers(children: st.SearchStrategy[Node]) -> st.SearchStrategy[Node]:
    members = st.tuples(_keys, children).map(lambda drawn: (*drawn[0], drawn[1]))
    return st.one_of(
        st.lists(children, max_size=4).map(lambda items: Array(tuple(items))),
        st.lists(members, max_size=4).map(lambda drawn: Object(tuple(drawn))),
    )


trees: st.SearchStrategy[Node] = st.recursive(
    st.one_of(_scalars, _scalars, _scalars, _constants), _containers, max_leaves=12
)

spaces = st.sampled_from(["", " ", "\n", "\t\r\n "])
