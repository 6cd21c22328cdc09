"""A clean-up call that fails after a failure is what the caller sees, with the first as context."""

from __future__ import annotations

import errno
from pathlib import Path

import pytest

from faults.mutation import Mutation
from faults.mutation_runs import clean, failure_of, require_disk, run, staged_names
from faults.mutation_tables import TABLES
from faults.steps import Step

# A file object that is dropped, since its parent would not close, is closed by its destructor.
pytestmark = pytest.mark.filterwarnings(
    "ignore::ResourceWarning", "ignore::pytest.PytestUnraisableExceptionWarning"
)

FIRST, SECOND = errno.EIO, errno.ENOSPC


@pytest.mark.parametrize("name", TABLES)
def test_each_clean_up_call_fails_behind_each_failure(name: str, tmp_path: Path) -> None:
    with TABLES[name](tmp_path / "clean") as mutation:
        lines = clean(mutation)
    pairs = 0
    for row, (line, numbers) in enumerate(lines):
        number, kind = numbers[0], line.split(" ")[0]
        with TABLES[name](tmp_path / f"{number}-once") as mutation:
            if not mutation.steps[row].after or not mutation.steps[row].is_replaced:
                continue
            once = run(mutation, {number: FIRST}, {number: kind})
        for clean_up, (second,) in once.lines_after(number):
            if once.raised is None or _ends_a_listing(clean_up, line):
                continue
            with TABLES[name](tmp_path / f"{number}-{second}") as mutation:
                print(f"{line} fails, then {clean_up}")
                _fail_twice(mutation, mutation.steps[row], (number, kind), (second, clean_up))
            pairs += 1
    assert pairs > 0


def _ends_a_listing(line: str, failed: str) -> bool:
    """A listing is let go without a word, whether it had begun or not."""
    unbegun = failed.replace("fdopendir ", "close ") if failed.startswith("fdopendir ") else ""
    return line.startswith("closedir ") or line == unbegun


def _fail_twice(
    mutation: Mutation, step: Step, first: tuple[int, str], second: tuple[int, str]
) -> None:
    (number, kind), (again, clean_up) = first, second
    kinds = {number: kind, again: clean_up.split(" ")[0]}
    done = run(mutation, {number: FIRST, again: SECOND}, kinds)
    expected = failure_of(done.calls[again - 1], SECOND)
    assert type(done.raised) is OSError
    assert str(done.raised) == str(expected)
    assert done.raised.__cause__ is None
    first_failure = failure_of(done.calls[number - 1], FIRST)
    assert FIRST in _errnos_before(done.raised)
    assert step.after is not None
    clean_up_lines = [line.removesuffix(" -> ENOENT") for line in step.after]
    behind = step.after[clean_up_lines.index(clean_up.removesuffix(" -> ENOENT")) + 1 :]
    done_behind = tuple(line for line, _ in done.lines_after(again))
    assert done_behind == (() if mutation.ends_at_failure else behind)
    not_closed = [line for line in behind if line.startswith("close ")]
    left_open = step.rule(first_failure).left_open
    left_open += len(not_closed) if mutation.ends_at_failure else 0
    assert done.left_open == left_open
    require_disk(mutation, done)
    staged = mutation.ends_at_failure and done.calls[again - 1].kind in ("close", "unlinkat")
    assert staged or staged_names(mutation.changes) == []


def _errnos_before(error: BaseException) -> list[int | None]:
    """The errno of each failure of a call that came before this one."""
    errnos = []
    while error.__context__ is not None:
        error = error.__context__
        if isinstance(error, OSError):
            errnos.append(error.errno)
    return errnos
