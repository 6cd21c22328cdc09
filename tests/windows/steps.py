"""Lists, for each operation, every call to the boundary in order and what its failure becomes."""

from __future__ import annotations

from collections.abc import Callable, Mapping
from typing import Any, NamedTuple

ROOT_UNSAFE = "pinned root canonical path changed or became unsafe during operation"


class Told(NamedTuple):
    """What a caller sees: class, text, class of the cause; a class of None means no failure."""

    kind: type[BaseException] | None
    text: str = ""
    cause: type[BaseException] | None = None


Rule = Callable[[Exception], Told | None]
Outer = Callable[[type[BaseException]], Told | None]


class Step(NamedTuple):
    """One call: its name, its arguments but for handles, and the rule of its failure.

    A rule gives None for a failure that passes as it is. A step without a rule is not made to
    fail: what a failing close in the middle of a walk leaves behind is nobody's promise.
    """

    name: str
    values: tuple[Any, ...] = ()
    keywords: Mapping[str, Any] = {}
    rule: Rule | None = None


def passes(error: Exception) -> Told | None:
    return None


def absent(error: Exception) -> Told | None:
    """Absence ends the look at a leaf well; all else passes."""
    return Told(None) if isinstance(error, FileNotFoundError) else None


def translated(text: str) -> Rule:
    """Any failure of the system becomes `ValueError` in these words."""

    def rule(error: Exception) -> Told | None:
        return Told(ValueError, text, type(error)) if isinstance(error, OSError) else None

    return rule


def but_absence(text: str) -> Rule:
    """As `translated`, save that absence passes as it is."""

    def rule(error: Exception) -> Told | None:
        absence = isinstance(error, FileNotFoundError)
        return None if absence else translated(text)(error)

    return rule


def parent_rule(label: str, path: str) -> Rule:
    def rule(error: Exception) -> Told | None:
        if isinstance(error, FileNotFoundError):
            text = f"{label} has a missing parent: {path}"
            return Told(FileNotFoundError, text, FileNotFoundError)
        return translated(f"{label} has a non-directory or reparse parent: {path}")(error)

    return rule


def then(first: Rule, second: Outer) -> Rule:
    """What an outer handler makes of what the inner rule gives."""

    def rule(error: Exception) -> Told | None:
        inner = first(error)
        kind = type(error) if inner is None else inner.kind
        assert kind is not None
        outer = second(kind)
        return inner if outer is None else outer

    return rule


def caught(kinds: tuple[type[Exception], ...], text: str) -> Outer:
    """An outer handler that puts its own words in the place of failures of these classes."""
    return lambda kind: Told(ValueError, text, kind) if issubclass(kind, kinds) else None


def uncaught(kind: type[BaseException]) -> Told | None:
    return None


def safe(rule: Rule = passes) -> list[Step]:
    """The judgement of what was opened: the link first, the kind second."""
    return [Step("is_reparse", rule=rule), Step("kind", rule=rule)]


def walk(
    label: str,
    path: str,
    *,
    create: bool = False,
    outer: Outer = uncaught,
) -> list[Step]:
    """From the pinned handle to the parent of the leaf."""
    inner = then(parent_rule(label, path), outer)
    steps = [Step("duplicate", rule=then(passes, outer))]
    for part in path.split("/")[:-1]:
        steps += [Step("open_directory", (part,), {"create": create}, inner)]
        steps += [*safe(inner), Step("close")]
    return steps


def looks(name: str) -> list[Step]:
    """One look at a regular leaf that may be replaced."""
    return [
        Step("open_entry", (name,), {"delete": False}, absent),
        *safe(),
        Step("close", rule=passes),
    ]


def parent_proof(label: str, path: str) -> list[Step]:
    text = f"{label} parent or ancestor changed: {path}"
    return [
        *walk(label, path, outer=caught((OSError, ValueError), text)),
        Step("identity", rule=passes),
        Step("identity", rule=passes),
        Step("close", rule=passes),
    ]


def directory_proof(label: str, path: str) -> list[Step]:
    text = f"{label} or ancestor changed: {path or '.'}"
    outer = caught((OSError,), text)
    rule = then(passes, outer)
    identities = [Step("identity", rule=rule), Step("identity", rule=rule)]
    if not path:
        return [Step("duplicate", rule=rule), *identities, Step("close", rule=passes)]
    return [
        *walk(label, path, outer=outer),
        Step("open_directory", (path.split("/")[-1],), {"create": False}, rule),
        *safe(rule),
        *identities,
        Step("close"),
        Step("close", rule=passes),
    ]


def absence_proof(label: str, path: str) -> list[Step]:
    text = f"{label} parent or ancestor changed during delete: {path}"
    outer = caught((OSError,), text)

    def entry(error: Exception) -> Told | None:
        return Told(None) if isinstance(error, FileNotFoundError) else outer(type(error))

    return [
        *walk(label, path, outer=outer),
        Step("open_entry", (path.split("/")[-1],), {"delete": False}, entry),
        Step("close", rule=passes),
    ]


def root_proof() -> list[Step]:
    rule = then(passes, caught((OSError, ValueError), ROOT_UNSAFE))
    return [
        Step("open_volume", ("\\\\?\\C:\\",), rule=rule),
        *safe(rule),
        Step("open_directory", ("data",), {"create": False}, rule),
        *safe(rule),
        Step("close"),
        Step("identity", rule=passes),
        Step("close", rule=passes),
    ]
