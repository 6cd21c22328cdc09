"""A step is one call of an operation: what its failure comes to, and what is still done then."""

from __future__ import annotations

from collections.abc import Iterable
from dataclasses import dataclass, replace

from faults.outcomes import Outcome, Rule, Rules, host


@dataclass(frozen=True)
class Step:
    """`after` are the calls that follow when this one fails; None leaves them open.

    `is_replaced` tells that a failure of those calls would replace that of this one.
    """

    line: str
    rule: Rule
    after: tuple[str, ...] | None = ()
    is_replaced: bool = True

    @property
    def kind(self) -> str:
        """The name of the call."""
        return self.line.split(" ")[0]


def steps(rules: Rules | Rule, *lines: str, after: Iterable[str] | None = ()) -> list[Step]:
    """One step a line, under the rule for its call."""
    follow = None if after is None else tuple(after)
    return [
        Step(line, rules if callable(rules) else rules[line.split(" ")[0]], follow)
        for line in lines
    ]


def guarded(body: list[Step], *clean_up: str) -> list[Step]:
    """The steps of `body`, each of whose failures is also followed by these calls."""
    return [
        step if step.after is None else replace(step, after=(*step.after, *clean_up))
        for step in body
    ]


def lines_of(body: Iterable[Step]) -> list[str]:
    """The calls of an undisturbed run."""
    return [step.line for step in body]


def releases(*lines: str) -> list[Step]:
    """Closes on the way out: if one fails, those behind it are made all the same."""
    # Of two of them that fail, either may be the one to be told of.
    return [
        Step(line, host, tuple(lines[index:]), is_replaced=False)
        for index, line in enumerate(lines, start=1)
    ]


def leaving(count: int, rule: Rule) -> Rule:
    """A failure that ends a clean-up leaves descriptors open."""

    def left(failure: OSError) -> Outcome:
        outcome = rule(failure)
        return outcome if outcome.kind is None else replace(outcome, left_open=count)

    return left


def walk(
    start: str, segments: Iterable[str], rules: Rules, *, made: int | None = None
) -> list[Step]:
    """A walk from a duplicate of one place; `made` is as for a descent."""
    return [*steps(rules, f"dup {start}"), *descent(f"{start}*", segments, rules, made=made)]


def descent(
    start: str, segments: Iterable[str], rules: Rules, *, made: int | None = None
) -> list[Step]:
    """The segments of a walk, which lets go of where it stands when a call fails.

    With `made` it creates: the last so many directories are missing.
    """
    told = []
    here = start
    names = list(segments)
    for left, name in zip(range(len(names), 0, -1), names, strict=True):
        below = f"{here.rstrip('/')}/{name}"
        new = [f"mkdirat {here} {name} 755", f"fsync {here}"]
        if made is not None:
            making = new if left <= made else [f"mkdirat {here} {name} 755 -> EEXIST"]
            told += steps(rules, *making, after=[f"close {here}"])
        opening = [f"openat {here} {name} directory"]
        # A walk that takes no look at what it has opened has no rule for one.
        opening += [f"fstat {below}"] if "fstat" in rules else []
        told += steps(rules, *opening, after=[f"close {here}"])
        # Of two directories that would not close, either may be the one to be told of.
        told.append(Step(f"close {here}", rules["close"], (f"close {below}",), is_replaced=False))
        here = below
    return told


def called(body: list[Step], place: str, name: str) -> list[Step]:
    """The steps with another name for the place that a walk ends at."""

    def told(line: str) -> str:
        *words, last = line.split(" ")
        return " ".join([*words, name]) if last == place else line

    return [
        replace(
            step,
            line=told(step.line),
            after=None if step.after is None else tuple(map(told, step.after)),
        )
        for step in body
    ]
