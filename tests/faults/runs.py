"""Runs an operation once to learn its calls, and tells what a faulty run has left behind."""

from __future__ import annotations

import os

from faults.injection import Call, armed
from faults.operations import Prepared
from faults.trace import grouped, opening
from support.descriptors import open_descriptors


def clean_run(operation: Prepared) -> list[tuple[str, list[int]]]:
    """The lines of an undisturbed run, each with the numbers of its calls."""
    with armed() as shim:
        result = operation.act()
    operation.release(result)
    # What becomes of a file object's own look is the host's affair.
    tell = opening if operation.has_host_reader else grouped
    return tell(shim.calls, operation.names)


def host_failure(line: str, code: int) -> OSError:
    """The exception that the host makes of a failing call: only calls by name carry the name."""
    words = line.split(" ")
    match words[0]:
        case "open":
            return OSError(code, os.strerror(code), words[1])
        case "openat" | "fstatat" | "mkdirat":
            return OSError(code, os.strerror(code), words[2])
        case _:
            return OSError(code, os.strerror(code))


def close_what_was_left(before: frozenset[int]) -> frozenset[int]:
    """Closes the descriptors that are open now and were not before, and names them."""
    left = open_descriptors() - before
    for descriptor in left:
        os.close(descriptor)
    return left


def require_left_open(before: frozenset[int], calls: list[Call], count: int) -> None:
    """Requires `count` descriptors to be left: at most one, whose first look failed."""
    left = close_what_was_left(before)
    assert len(left) == count, f"left open: {len(left)}, by {calls}"
    if count:
        looked_at = {call.fd for call in calls if call.kind == "fstat" and call.error != 0}
        assert looked_at == left
