"""No call that fails on the way leaves a reference behind, nor a descriptor but the known one."""

from __future__ import annotations

import errno
import itertools
import shutil
from pathlib import Path

import pytest

from faults.injection import armed
from faults.operations import OPERATIONS
from faults.runs import clean_run, close_what_was_left
from leaks.hunt import require_no_leak
from support.descriptors import open_descriptors

# A reader that is dropped, since its parent would not close, is closed by its destructor.
pytestmark = [
    pytest.mark.filterwarnings(
        "ignore::ResourceWarning", "ignore::pytest.PytestUnraisableExceptionWarning"
    ),
    pytest.mark.usefixtures("short_collections"),
]


# What is absent and what cannot be had are told apart in most places.
@pytest.mark.parametrize("code", [errno.EIO, errno.ENOENT], ids=errno.errorcode.get)
@pytest.mark.parametrize("name", OPERATIONS)
def test_failing_calls_leave_nothing_behind(name: str, code: int, tmp_path: Path) -> None:
    with OPERATIONS[name](tmp_path / "clean") as operation:
        calls = [
            (line.split(" ")[0], number)
            for line, numbers in clean_run(operation)
            for number in numbers
        ]
    places = (tmp_path / str(number) for number in itertools.count())

    def fail_at_each_call() -> None:
        for kind, number in calls:
            _fail(name, next(places), kind, number, code)

    require_no_leak(fail_at_each_call, repeats=3)


def _fail(name: str, place: Path, kind: str, number: int, code: int) -> None:
    """Runs the operation with one failing call; how it must end is told elsewhere."""
    with OPERATIONS[name](place) as operation:
        before = open_descriptors()
        with armed() as shim:
            (shim.fail_after if kind == "close" else shim.fail)("any", number, code)
            try:
                operation.release(operation.act())
            except (OSError, ValueError):
                pass
        # One look that fails leaves its descriptor open by design.
        assert len(close_what_was_left(before)) <= 1
    shutil.rmtree(place)
