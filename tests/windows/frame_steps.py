"""Lists every call to the boundary of each step of pinning, and what its failure becomes."""

from __future__ import annotations

import os
from collections.abc import Callable
from typing import Any, NamedTuple

from windows.walked import ROOT_UNSAFE

# A failure as a caller sees it: its class and text, then those of its causes. No text means the
# failure that was injected; an empty chain means that the operation succeeds.
Chain = list[tuple[type[BaseException], str | None]]
Rule = Callable[[Chain], Chain]


class Step(NamedTuple):
    """One call, and the rules through which its failure goes, the innermost first.

    Rules of None mean a close within a walk: what its failure leaves behind is not promised.
    """

    name: str
    rules: tuple[Rule, ...] | None = ()


class Case(NamedTuple):
    """An operation on a root pinned to `data`, and its steps.

    It is given a handle on `data/sub`; the root has one on `data/sub/deep` as `deep`.
    """

    run: Callable[[Any, int], object]
    steps: list[Step]


def becomes(kind: type[BaseException], to: type[BaseException], text: str) -> Rule:
    def rule(chain: Chain) -> Chain:
        return [(to, text), *chain] if chain and issubclass(chain[0][0], kind) else chain

    return rule


def absent_is_well(chain: Chain) -> Chain:
    return [] if chain and chain[0][0] is FileNotFoundError else chain


def either(first: Rule, second: Rule) -> Rule:
    """The second rule, where the first changes nothing."""

    def rule(chain: Chain) -> Chain:
        changed = first(chain)
        return changed if changed is not chain else second(chain)

    return rule


def unsafe(chain: Chain) -> Chain:
    kinds = (OSError, ValueError)
    return [(ValueError, ROOT_UNSAFE), *chain] if issubclass(chain[0][0], kinds) else chain


def walk_rule(missing: str, refused: str) -> Rule:
    return either(
        becomes(FileNotFoundError, FileNotFoundError, missing),
        becomes(OSError, ValueError, refused),
    )


COMPONENT = walk_rule("what is missing: sub", "what has a reparse or non-directory segment: sub")


def opening(name: str, *rules: Rule) -> list[Step]:
    """One open and the two looks at what was opened, all under one protection."""
    return [Step(name, rules), Step("is_reparse", rules), Step("kind", rules)]


BETWEEN = Step("close", None)
AT_THE_END = Step("close")


def absolute(*rules: Rule) -> list[Step]:
    return [*opening("open_volume", *rules), *opening("open_directory", *rules), BETWEEN]


def components(*outer: Rule) -> list[Step]:
    steps = [Step("duplicate", outer), *opening("open_directory", COMPONENT, *outer)]
    return [*steps, BETWEEN]


def parent(path: str, *outer: Rule) -> list[Step]:
    rule = walk_rule(
        f"what has a missing parent: {path}",
        f"what has a non-directory or reparse parent: {path}",
    )
    return [Step("duplicate", outer), *opening("open_directory", rule, *outer), BETWEEN]


PROOF = [*absolute(unsafe), Step("identity"), AT_THE_END]
CHILD_PROOF = [*components(unsafe), Step("identity"), AT_THE_END]

_PARENT = "what parent or ancestor changed: sub/x"
parent_changed = either(
    becomes(OSError, ValueError, _PARENT), becomes(ValueError, ValueError, _PARENT)
)
gone = becomes(OSError, ValueError, "what parent or ancestor changed during delete: sub/none")
left = becomes(FileNotFoundError, ValueError, "what path changed while open: sub/file")


def directory_changed(shown: str) -> Rule:
    return becomes(OSError, ValueError, f"what or ancestor changed: {shown}")


def _release(root: Any, result: Any) -> None:
    root._boundary.close(result[0] if isinstance(result, tuple) else result)


def _stat(root: Any) -> os.stat_result:
    return os.fstat(root._boundary.volume.node("data/sub/file").backing)


CASES: dict[str, Case] = {
    "proof": Case(lambda root, handle: root.assert_root_unchanged(), PROOF),
    "absolute walk": Case(
        lambda root, handle: _release(root, root._open_absolute_directory(root.path, create=False)),
        [*absolute(), AT_THE_END],
    ),
    "components walk": Case(
        lambda root, handle: _release(
            root, root._open_directory_components(root._descriptor, ("sub",), label="what")
        ),
        [*components(), AT_THE_END],
    ),
    "contained root": Case(
        lambda root, handle: root.open_contained_root("sub", label="what").close(),
        [
            *PROOF,
            Step("duplicate"),
            *components(),
            Step("identity"),
            *CHILD_PROOF,
            AT_THE_END,
            AT_THE_END,
        ],
    ),
    "parent walk": Case(
        lambda root, handle: _release(root, root._open_parent("sub/x", label="what", create=False)),
        [*parent("sub/x"), AT_THE_END],
    ),
    "replaceable leaf": Case(
        lambda root, handle: root._assert_replaceable_leaf(
            handle, "file", safe_path="sub/file", allow_replace=True
        ),
        [Step("open_entry", (absent_is_well,)), Step("is_reparse"), Step("kind"), AT_THE_END],
    ),
    "matching file": Case(
        lambda root, handle: root._assert_path_matches_regular_file(
            "sub/file", label="what", expected_stat=_stat(root)
        ),
        [
            *parent("sub/file"),
            Step("open_regular", (left,)),
            Step("is_reparse"),
            Step("kind"),
            Step("stat"),
            AT_THE_END,
            AT_THE_END,
        ],
    ),
    "matching parent": Case(
        lambda root, handle: root._assert_parent_path_matches(
            "sub/x", expected_parent=handle, label="what"
        ),
        [*parent("sub/x", parent_changed), Step("identity"), Step("identity"), AT_THE_END],
    ),
    "matching directory": Case(
        lambda root, handle: root._assert_directory_path_matches(
            "sub/deep", expected_directory=root.deep, label="what"
        ),
        [
            *parent("sub/deep", directory_changed("sub/deep")),
            *opening("open_directory", directory_changed("sub/deep")),
            Step("identity", (directory_changed("sub/deep"),)),
            Step("identity", (directory_changed("sub/deep"),)),
            AT_THE_END,
            AT_THE_END,
        ],
    ),
    "matching root": Case(
        lambda root, handle: root._assert_directory_path_matches(
            "", expected_directory=root._descriptor, label="what"
        ),
        [
            Step("duplicate", (directory_changed("."),)),
            Step("identity", (directory_changed("."),)),
            Step("identity", (directory_changed("."),)),
            AT_THE_END,
        ],
    ),
    "missing leaf": Case(
        lambda root, handle: root._assert_leaf_missing("sub/none", label="what"),
        [*parent("sub/none", gone), Step("open_entry", (absent_is_well, gone)), AT_THE_END],
    ),
}
