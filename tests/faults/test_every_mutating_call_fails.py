"""Each call of each mutating operation fails once: the failure, the clean-up and the disk hold."""

from __future__ import annotations

import errno
import itertools
from pathlib import Path

import pytest

from faults.mutation_runs import (
    ERRNOS,
    clean,
    failure_of,
    require_clean_up,
    require_disk,
    require_outcome,
    run,
    staged_names,
)
from faults.mutation_tables import FUNCTIONS, TABLES
from faults.steps import lines_of

# A file object that is dropped, since its parent would not close, is closed by its destructor.
pytestmark = pytest.mark.filterwarnings(
    "ignore::ResourceWarning", "ignore::pytest.PytestUnraisableExceptionWarning"
)

# Around an operation the same calls come again and again: one or two failures of each show it.
FEW_ERRNOS = {
    **{kind: (errno.EIO,) for kind in ERRNOS},
    "openat": (errno.EIO, errno.ENOENT),
    "linkat": (errno.EIO,),
}
ALL = {**TABLES, **FUNCTIONS}


@pytest.mark.parametrize("name", ALL)
def test_the_table_of_an_operation_has_every_call_of_it(name: str, tmp_path: Path) -> None:
    with ALL[name](tmp_path / "root") as mutation:
        assert [line for line, _ in clean(mutation)] == lines_of(mutation.steps)


@pytest.mark.parametrize("name", ALL)
def test_each_failing_call_has_the_documented_failure_and_clean_up(
    name: str, tmp_path: Path
) -> None:
    with ALL[name](tmp_path / "clean") as mutation:
        lines = clean(mutation)
        pinned = list(mutation.pins)
    errnos = ERRNOS if name in TABLES else FEW_ERRNOS
    wrong = []
    for row, (clean_line, numbers) in enumerate(lines):
        kind = clean_line.split(" ")[0]
        if _is_far(clean_line, pinned):
            continue
        for number, code in itertools.product(numbers, errnos.get(kind, ())):
            with ALL[name](tmp_path / f"{number}-{code}") as mutation:
                step = mutation.steps[row]
                try:
                    done = run(mutation, {number: code}, {number: kind})
                    outcome = step.rule(failure_of(done.calls[number - 1], code))
                    require_outcome(done, outcome)
                    if outcome.kind is not None:
                        require_clean_up(done, step, number)
                    require_disk(mutation, done)
                    assert staged_names(mutation.changes) == []
                except AssertionError as error:
                    wrong.append(f"{step.line}, {errno.errorcode[code]}: {error}")
    assert not wrong, "\n\n".join(wrong)


def _is_far(line: str, pinned: list[str]) -> bool:
    """A call of a walk from the top that is above the directory of a root.

    The tables of pins and proofs have each of them fail.
    """
    kind, place, *_ = line.split(" ")
    above = [str(parent) for root in pinned for parent in Path(root).parent.parents]
    return kind != "open" and place in above
