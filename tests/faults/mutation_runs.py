"""Runs a mutating operation under faults, and holds what it raises and leaves against its table."""

from __future__ import annotations

import errno
import os
from collections.abc import Callable, Mapping
from dataclasses import dataclass
from pathlib import Path

from faults.injection import Call, Shim, armed
from faults.mutation import Change, Mutation
from faults.outcomes import Outcome
from faults.runs import close_what_was_left
from faults.steps import Step
from faults.trace import grouped, opening, require_single_closes
from support.descriptors import open_descriptors
from support.failures import assert_chained

# What a kernel or a network file system can answer to each kind of call.
ERRNOS = {
    "open": (errno.EACCES, errno.EIO, errno.EMFILE),
    "openat": (
        errno.EACCES, errno.EEXIST, errno.EIO, errno.ELOOP, errno.EMFILE, errno.ENOENT,
        errno.ENOSPC, errno.ENOTDIR, errno.EROFS,
    ),
    "fstat": (errno.EIO, errno.ENOENT, errno.EOVERFLOW),
    "fstatat": (errno.EACCES, errno.EIO, errno.ELOOP, errno.ENOENT, errno.ENOTDIR),
    "dup": (errno.EMFILE, errno.ENFILE),
    "mkdirat": (errno.EACCES, errno.EMLINK, errno.ENOENT, errno.ENOSPC, errno.EROFS),
    "fsync": (errno.EIO, errno.ENOSPC, errno.EROFS),
    "write": (errno.EDQUOT, errno.EFBIG, errno.EIO, errno.ENOSPC),
    "read": (errno.EIO,),
    "close": (errno.EDQUOT, errno.EIO, errno.ENOSPC),
    "unlinkat": (errno.EACCES, errno.EBUSY, errno.EIO, errno.ENOENT, errno.EROFS),
    "renameat": (
        errno.EACCES, errno.EIO, errno.EISDIR, errno.ENOENT, errno.ENOSPC, errno.ENOTEMPTY,
        errno.EROFS, errno.EXDEV,
    ),
    "fdopendir": (errno.EIO, errno.ENOMEM),
    "ftruncate": (errno.EIO, errno.ENOSPC),
}  # fmt: skip

# Calls by the number that they have among all; each is to report an errno.
Faults = Mapping[int, int]


@dataclass(frozen=True)
class Run:
    """What came of one run, with the descriptors that it left closed again."""

    told: list[tuple[str, list[int]]]
    calls: list[Call]
    raised: BaseException | None
    left_open: int

    def lines_after(self, number: int) -> list[tuple[str, list[int]]]:
        """The calls behind the given one."""
        return [(line, numbers) for line, numbers in self.told if numbers[0] > number]


def run(mutation: Mutation, faults: Faults, kinds: Mapping[int, str]) -> Run:
    """Runs the operation while these calls fail; a close fails once it has let go."""

    def set_faults(shim: Shim) -> None:
        for number, code in faults.items():
            (shim.fail_after if kinds[number] == "close" else shim.fail)("any", number, code)

    return ran(mutation, set_faults)


def ran(mutation: Mutation, set_faults: Callable[[Shim], None]) -> Run:
    """Runs the operation under any faults."""
    before = open_descriptors()
    raised = None
    with armed() as shim:
        set_faults(shim)
        try:
            mutation.release(mutation.act())
        except BaseException as error:
            # Frames that it holds would keep file objects alive.
            raised = error.with_traceback(None)
    require_single_closes(shim.calls)
    tell = opening if mutation.opens_files else grouped
    told = tell(shim.calls, mutation.names, mutation.pins)
    return Run(told, shim.calls, raised, len(close_what_was_left(before)))


def clean(mutation: Mutation) -> list[tuple[str, list[int]]]:
    """The lines of an undisturbed run with their numbers, without the release of its result."""
    with armed() as shim:
        result = mutation.act()
    mutation.release(result)
    tell = opening if mutation.opens_files else grouped
    return tell(shim.calls, mutation.names, mutation.pins)


def failure_of(call: Call, code: int) -> OSError:
    """The exception that the host makes of a failing call: only calls by name carry names."""
    match call.kind:
        case "open" | "openat" | "fstatat" | "mkdirat" | "unlinkat":
            return OSError(code, os.strerror(code), call.name)
        case "renameat" | "linkat":
            return OSError(code, os.strerror(code), call.name, None, call.other_name)
        case _:
            return OSError(code, os.strerror(code))


def require_outcome(done: Run, outcome: Outcome) -> None:
    """Requires exactly this failure, with its chain, and exactly the descriptors that stay."""
    if outcome.kind is None:
        assert done.raised is None, repr(done.raised)
    else:
        assert type(done.raised) is outcome.kind, repr(done.raised)
        assert outcome.text in (None, str(done.raised)), str(done.raised)
        assert_chained(done.raised, outcome.cause)
        first: BaseException = done.raised
        while first.__cause__ is not None:
            first = first.__cause__
        assert first.__context__ is None, repr(first.__context__)
    assert done.left_open == outcome.left_open, f"left open: {done.left_open}"


def require_clean_up(done: Run, step: Step, number: int) -> None:
    """Requires the calls behind the failed one to be those that the table names."""
    if step.after is None:
        return
    # A place that was left open makes a later open of it a second one in the trace.
    told, expected = (
        [line.replace("'", "") if done.left_open else line for line in lines]
        for lines in ([line for line, _ in done.lines_after(number)], step.after)
    )
    assert told == expected, f"made {told} and not {expected}"


def require_disk(mutation: Mutation, done: Run) -> None:
    """Every path holds what it did before the turn, or what it is to hold after it, whole."""
    turned = any(call.kind == mutation.turn and call.error == 0 for call in done.calls)
    for change in mutation.changes:
        expected = change.after if turned else change.before
        assert content(change.path) == expected, f"{change.path.name}: {content(change.path)!r}"


def content(path: Path) -> bytes | None:
    """The bytes of a file, or None if there is none."""
    return path.read_bytes() if path.exists() else None


def staged_names(changes: tuple[Change, ...]) -> list[str]:
    """The names of staged and transfer files that lie beside the changed paths."""
    parents = {change.path.parent for change in changes}
    return sorted(file.name for parent in parents for file in parent.glob("*.tmp"))
