"""An interrupted write or sync is made again; an interrupted change of names passes as a failure.

A handler that raises ends the call, and every clean-up step is still made.
"""

from __future__ import annotations

import errno
import os
from collections.abc import Callable, Iterator
from pathlib import Path

import pytest

from faults.injection import Shim, armed
from faults.interruptions import SIGNAL, Handler, Stop, handled
from faults.mutation import Mutation
from faults.mutation_runs import (
    Run,
    clean,
    failure_of,
    ran,
    require_clean_up,
    require_disk,
    require_outcome,
    staged_names,
)
from faults.mutation_tables import FUNCTIONS, TABLES
from faults.steps import Step

# A file object that is dropped, since its parent would not close, is closed by its destructor.
pytestmark = pytest.mark.filterwarnings(
    "ignore::ResourceWarning", "ignore::pytest.PytestUnraisableExceptionWarning"
)

RETRIED = ("open", "openat", "fstat", "fsync", "read", "write")
PASSED_ON = ("fstatat", "mkdirat", "dup", "close", "unlinkat", "renameat", "fdopendir")
COPY = FUNCTIONS["copy_between_roots"]
STREAMED = {**TABLES, "copy_between_roots": COPY}


@pytest.fixture()
def handler() -> Iterator[Handler]:
    with handled() as handler:
        yield handler


def _interrupt(shim: Shim, kind: str, number: int, *, made: bool) -> None:
    """A signal arrives and the call reports it; a close has let go of its descriptor by then."""
    shim.interrupt(kind, number, SIGNAL)
    (shim.fail_after if made else shim.fail)(kind, number, errno.EINTR)


HOST_CALLS: dict[str, Callable[[int, int], object]] = {
    "write": lambda directory, file: os.write(file, b"content"),
    "unlinkat": lambda directory, file: os.unlink("file", dir_fd=directory),
    "renameat": lambda directory, file: os.rename(
        "file", "other", src_dir_fd=directory, dst_dir_fd=directory
    ),
    "linkat": lambda directory, file: os.link(
        "file", "other", src_dir_fd=directory, dst_dir_fd=directory
    ),
    "fdopendir": lambda directory, file: os.listdir(directory),
    "readdir": lambda directory, file: os.listdir(directory),
}


@pytest.mark.parametrize("kind", HOST_CALLS)
def test_the_host_sets_which_calls_are_made_again(
    kind: str, tmp_path: Path, handler: Handler
) -> None:
    directory = os.open(tmp_path, os.O_RDONLY)
    file = os.open(tmp_path / "file", os.O_RDWR | os.O_CREAT)
    try:
        with armed() as shim:
            _interrupt(shim, kind, 1, made=False)
            try:
                HOST_CALLS[kind](directory, file)
                retried = True
            except InterruptedError:
                retried = False
    finally:
        os.close(directory)
        os.close(file)
    assert retried is (kind in RETRIED)


def _chosen(
    name: str, tmp_path: Path, kinds: tuple[str, ...]
) -> Iterator[tuple[Mutation, Step, int]]:
    """Each call of these kinds in turn, in a fresh tree: its step and its number."""
    table = STREAMED[name]
    with table(tmp_path / "clean") as mutation:
        lines = clean(mutation)
    far = [str(parent) for root in mutation.pins for parent in Path(root).parents]
    for row, (line, numbers) in enumerate(lines):
        kind, place, *_ = line.split(" ")
        if kind not in kinds or place in far or (mutation.pins and kind not in ("read", "write")):
            continue
        for number in numbers:
            with table(tmp_path / f"root-{number}") as mutation:
                # Shown beside a failure, to tell which call it was.
                print(mutation.steps[row].line)
                yield mutation, mutation.steps[row], number


def _interrupted(mutation: Mutation, step: Step, number: int) -> Run:
    return ran(mutation, lambda shim: _interrupt(shim, "any", number, made=step.kind == "close"))


@pytest.mark.parametrize("name", STREAMED)
def test_an_interrupted_call_is_made_again(name: str, tmp_path: Path, handler: Handler) -> None:
    for mutation, step, number in _chosen(name, tmp_path, RETRIED):
        handler.signals = 0
        done = _interrupted(mutation, step, number)
        assert done.raised is None
        assert done.left_open == 0
        assert handler.signals == 1
        interrupted, again = done.calls[number - 1 : number + 1]
        assert interrupted.error == errno.EINTR
        assert interrupted[:6] == again[:6]
        require_disk(mutation, done)
        assert mutation.turn in ("nothing", *(call.kind for call in done.calls))


@pytest.mark.parametrize("name", TABLES)
def test_an_interruption_elsewhere_passes_as_a_failure_of_that_call(
    name: str, tmp_path: Path, handler: Handler
) -> None:
    for mutation, step, number in _chosen(name, tmp_path, PASSED_ON):
        handler.signals = 0
        done = _interrupted(mutation, step, number)
        outcome = step.rule(failure_of(done.calls[number - 1], errno.EINTR))
        assert InterruptedError in (outcome.kind, outcome.cause)
        require_outcome(done, outcome)
        require_clean_up(done, step, number)
        require_disk(mutation, done)
        assert handler.signals == 1


def test_an_interrupted_link_becomes_a_copy(tmp_path: Path, handler: Handler) -> None:
    with FUNCTIONS["link_between_roots"](tmp_path / "roots") as mutation:
        with armed() as shim:
            _interrupt(shim, "linkat", 1, made=False)
            assert mutation.act() == "copied"
    assert handler.signals == 1


@pytest.mark.parametrize("name", STREAMED)
def test_what_a_handler_raises_passes_with_the_clean_up_made(
    name: str, tmp_path: Path, handler: Handler
) -> None:
    for mutation, step, number in _chosen(name, tmp_path, RETRIED):
        handler.raises = error = Stop("stopped")
        done = _interrupted(mutation, step, number)
        assert done.raised is error
        require_clean_up(done, step, number)
        assert done.left_open == step.rule(OSError(errno.EIO, "")).left_open
        require_disk(mutation, done)
        assert staged_names(mutation.changes) == []


def _own_syncs(mutation: Mutation) -> set[str]:
    """The syncs of an operation, without those that its walk makes behind each directory."""
    lines = [step.line for step in mutation.steps]
    return {
        line
        for before, line in zip(["", *lines], lines, strict=False)
        if line.startswith("fsync ") and not before.startswith("mkdirat ")
    }


@pytest.mark.parametrize(
    "name",
    ["write_over", "write_new", "remove", "replace", "move", "remove_tree", "copy_between_roots"],
)
def test_even_an_exit_of_the_program_runs_every_clean_up_step(
    name: str, tmp_path: Path, handler: Handler
) -> None:
    stopped = 0
    for mutation, step, number in _chosen(name, tmp_path, ("write", "fsync")):
        if step.kind == "fsync" and step.line not in _own_syncs(mutation):
            continue
        handler.raises = error = KeyboardInterrupt()
        done = _interrupted(mutation, step, number)
        assert done.raised is error
        require_clean_up(done, step, number)
        assert done.left_open == 0
        require_disk(mutation, done)
        assert staged_names(mutation.changes) == []
        stopped += 1
    assert stopped > 0
