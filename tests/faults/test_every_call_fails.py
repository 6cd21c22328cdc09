"""Each call of each operation fails once: the failure is the documented one, and nothing leaks."""

from __future__ import annotations

import errno
import itertools
from pathlib import Path

import pytest

from faults.injection import armed
from faults.operations import OPERATIONS, Prepared
from faults.outcomes import Outcome
from faults.runs import clean_run, host_failure, require_left_open
from faults.trace import require_single_closes
from support.descriptors import open_descriptors
from support.failures import fails_with

# A reader that is dropped, since its parent would not close, is closed by its destructor.
pytestmark = pytest.mark.filterwarnings(
    "ignore::ResourceWarning", "ignore::pytest.PytestUnraisableExceptionWarning"
)

# What a kernel or a network file system can answer to each kind of call.
ERRNOS = {
    "open": (errno.EACCES, errno.EIO, errno.EMFILE, errno.ENOENT),
    "openat": (
        errno.EACCES, errno.EIO, errno.ELOOP, errno.EMFILE, errno.ENOENT, errno.ENOTDIR,
    ),
    "fstat": (errno.EIO, errno.ENOENT, errno.EOVERFLOW),
    "fstatat": (errno.EACCES, errno.EIO, errno.ELOOP, errno.ENOENT, errno.ENOTDIR),
    "dup": (errno.EMFILE, errno.ENFILE),
    "mkdirat": (errno.EACCES, errno.EMLINK, errno.ENOENT, errno.ENOSPC, errno.EROFS),
    "fsync": (errno.EIO, errno.ENOSPC, errno.EROFS),
    "read": (errno.EIO, errno.EISDIR, errno.ENOENT),
    "close": (errno.EDQUOT, errno.EIO, errno.ENOSPC),
}  # fmt: skip


@pytest.mark.parametrize("name", OPERATIONS)
def test_the_table_of_an_operation_has_every_call_of_it(name: str, tmp_path: Path) -> None:
    with OPERATIONS[name](tmp_path / "root") as operation:
        told = [line for line, _ in clean_run(operation)]
        assert told == [line for line, _ in operation.table]


@pytest.mark.parametrize("name", OPERATIONS)
def test_each_failing_call_gives_the_documented_failure(name: str, tmp_path: Path) -> None:
    with OPERATIONS[name](tmp_path / "clean") as operation:
        lines = clean_run(operation)
    wrong = []
    for row, (clean_line, numbers) in enumerate(lines):
        kind = clean_line.split(" ")[0]
        for number, code in itertools.product(numbers, ERRNOS[kind]):
            with OPERATIONS[name](tmp_path / f"{number}-{code}") as operation:
                line, rule = operation.table[row]
                try:
                    _fail_once(operation, kind, number, code, rule(host_failure(line, code)))
                except Exception as error:
                    wrong.append(f"{line}, {errno.errorcode[code]}: {error!r}")
    assert not wrong, "\n".join(wrong)


def _fail_once(operation: Prepared, kind: str, number: int, code: int, outcome: Outcome) -> None:
    before = open_descriptors()
    with armed() as shim:
        # A close that fails has released its descriptor before.
        (shim.fail_after if kind == "close" else shim.fail)("any", number, code)
        if outcome.kind is None:
            operation.release(operation.act())
        else:
            with fails_with(outcome.kind, outcome.text, cause=outcome.cause):
                operation.release(operation.act())
    require_single_closes(shim.calls)
    require_left_open(before, shim.calls, outcome.left_open)
