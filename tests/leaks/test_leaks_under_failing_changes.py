"""No call that fails under a change leaves a reference or an unknown descriptor behind."""

from __future__ import annotations

import errno
import itertools
import shutil
from pathlib import Path

import pytest

from faults.mutation import Mutation
from faults.mutation_runs import ERRNOS, clean, failure_of, run
from faults.mutation_tables import TABLES
from leaks.hunt import require_no_leak

# A file object that is dropped, since its parent would not close, is closed by its destructor.
pytestmark = [
    pytest.mark.filterwarnings(
        "ignore::ResourceWarning", "ignore::pytest.PytestUnraisableExceptionWarning"
    ),
    pytest.mark.usefixtures("short_collections"),
]


@pytest.mark.parametrize("name", TABLES)
def test_failing_calls_of_a_change_leave_nothing_behind(name: str, tmp_path: Path) -> None:
    with TABLES[name](tmp_path / "clean") as mutation:
        calls = [
            (row, line.split(" ")[0], number)
            for row, (line, numbers) in enumerate(clean(mutation))
            for number in numbers
            # A listing that the shim keeps from being closed stays open, whatever the module does.
            if line.split(" ")[0] in ERRNOS
        ]
    places = (tmp_path / str(number) for number in itertools.count())

    def fail_at_each_call() -> None:
        for row, kind, number in calls:
            place = next(places)
            with TABLES[name](place) as mutation:
                _fail(mutation, row, kind, number)
            shutil.rmtree(place)

    require_no_leak(fail_at_each_call, repeats=1)


def _fail(mutation: Mutation, row: int, kind: str, number: int) -> None:
    """Runs the operation with one failing call, which leaves open what its table says."""
    done = run(mutation, {number: errno.EIO}, {number: kind})
    outcome = mutation.steps[row].rule(failure_of(done.calls[number - 1], errno.EIO))
    assert done.left_open == outcome.left_open
