"""An interrupted call runs its handler, and is made again where the host's functions do so.

Elsewhere the interruption passes as a failure of that call.
"""

from __future__ import annotations

import errno
import os
from collections.abc import Callable, Iterator
from pathlib import Path

import pytest

from faults.injection import Call, Shim, armed
from faults.interruptions import SIGNAL, Handler, Stop, handled
from faults.layout import LABEL, LEAF, make_tree, pinned
from faults.operations import OPERATIONS, Prepared
from faults.runs import clean_run, close_what_was_left, host_failure, require_left_open
from faults.trace import require_single_closes
from support.descriptors import open_descriptors
from support.failures import fails_with

# A reader that is dropped, since its parent would not close, is closed by its destructor.
pytestmark = pytest.mark.filterwarnings(
    "ignore::ResourceWarning", "ignore::pytest.PytestUnraisableExceptionWarning"
)

RETRIED = ("open", "openat", "fstat", "fsync", "read")
PASSED_ON = ("fstatat", "mkdirat", "dup", "lseek", "close")
# The others make none of the calls that are made again.
RETRYING = [
    name
    for name in OPERATIONS
    if name not in ("close", "close_contained", "assert_replaceable_leaf")
]


@pytest.fixture()
def handler() -> Iterator[Handler]:
    with handled() as handler:
        yield handler


HOST_CALLS: dict[str, Callable[[int, int], object]] = {
    "open": lambda directory, file: os.close(os.open("/", os.O_RDONLY)),
    "openat": lambda directory, file: os.close(os.open("file", os.O_RDONLY, dir_fd=directory)),
    "fstat": lambda directory, file: os.fstat(file),
    "fsync": lambda directory, file: os.fsync(file),
    "read": lambda directory, file: os.read(file, 1),
    "fstatat": lambda directory, file: os.stat("file", dir_fd=directory, follow_symlinks=False),
    "mkdirat": lambda directory, file: os.mkdir("new", dir_fd=directory),
    "dup": lambda directory, file: os.dup(file),
    "lseek": lambda directory, file: os.lseek(file, 0, os.SEEK_SET),
    "close": lambda directory, file: os.close(os.dup(file)),
}


@pytest.mark.parametrize("kind", HOST_CALLS)
def test_the_host_sets_which_calls_are_made_again(
    kind: str, tmp_path: Path, handler: Handler
) -> None:
    (tmp_path / "file").write_bytes(b"content")
    directory = os.open(tmp_path, os.O_RDONLY)
    file = os.open(tmp_path / "file", os.O_RDONLY)
    try:
        with armed() as shim:
            _interrupt(shim, kind, 1, made=kind == "close")
            try:
                HOST_CALLS[kind](directory, file)
                retried = True
            except InterruptedError:
                retried = False
    finally:
        os.close(directory)
        os.close(file)
    assert retried is (kind in RETRIED)
    assert retried is not (kind in PASSED_ON)


def _interrupt(shim: Shim, kind: str, number: int, *, made: bool = False) -> None:
    """A signal arrives and the call reports it; a close has released its descriptor by then."""
    shim.interrupt(kind, number, SIGNAL)
    (shim.fail_after if made else shim.fail)(kind, number, errno.EINTR)


def _chosen(
    name: str, tmp_path: Path, kinds: tuple[str, ...]
) -> Iterator[tuple[Prepared, int, int]]:
    """Each call of these kinds in turn, in a fresh tree: its row in the table and its number."""
    with OPERATIONS[name](tmp_path / "clean") as operation:
        lines = clean_run(operation)
    chosen = [
        (row, number)
        for row, (line, numbers) in enumerate(lines)
        for number in numbers
        if line.split(" ")[0] in kinds
    ]
    assert chosen
    for row, number in chosen:
        with OPERATIONS[name](tmp_path / f"root-{number}") as operation:
            # Shown beside a failure, to tell which call it was.
            print(operation.table[row][0])
            yield operation, row, number


@pytest.mark.parametrize("signalled", [True, False], ids=["with a handler", "with none to run"])
@pytest.mark.parametrize("name", RETRYING)
def test_an_interrupted_call_is_made_again(
    name: str, signalled: bool, tmp_path: Path, handler: Handler
) -> None:
    for operation, _, number in _chosen(name, tmp_path, RETRIED):
        handler.signals = 0
        before = open_descriptors()
        with armed() as shim:
            if signalled:
                _interrupt(shim, "any", number)
            else:
                shim.fail("any", number, errno.EINTR)
            result = operation.act()
        operation.release(result)
        assert not close_what_was_left(before)
        assert handler.signals == int(signalled)
        interrupted, again = shim.calls[number - 1 : number + 1]
        assert interrupted.error == errno.EINTR
        assert _asked(again) == _asked(interrupted)


def _asked(call: Call) -> tuple[object, ...]:
    return call.kind, call.fd, call.name, call.flags, call.mode, call.size


@pytest.mark.parametrize("name", OPERATIONS)
def test_an_interruption_elsewhere_passes_as_a_failure_of_that_call(
    name: str, tmp_path: Path, handler: Handler
) -> None:
    for operation, row, number in _chosen(name, tmp_path, PASSED_ON):
        handler.signals = 0
        line, rule = operation.table[row]
        outcome = rule(host_failure(line, errno.EINTR))
        assert outcome.kind is not None
        before = open_descriptors()
        with armed() as shim, fails_with(outcome.kind, outcome.text, cause=outcome.cause):
            _interrupt(shim, "any", number, made=line.startswith("close "))
            operation.release(operation.act())
        assert handler.signals == 1
        require_single_closes(shim.calls)
        require_left_open(before, shim.calls, outcome.left_open)


@pytest.mark.parametrize(
    "raised",
    [Stop("stopped"), ConnectionResetError("by the handler"), FileNotFoundError("by the handler")],
    ids=lambda error: type(error).__name__,
)
@pytest.mark.parametrize("name", RETRYING)
def test_what_the_handler_raises_is_the_failure_of_the_call(
    name: str, raised: Exception, tmp_path: Path, handler: Handler
) -> None:
    """An OSError of a handler goes the way of the call's own; anything else passes untouched."""
    for operation, row, number in _chosen(name, tmp_path, RETRIED):
        line, rule = operation.table[row]
        handler.raises = error = type(raised)(*raised.args)
        outcome = rule(error) if isinstance(error, OSError) else None
        before = open_descriptors()
        with armed() as shim:
            _interrupt(shim, "any", number)
            if outcome is None:
                with pytest.raises(Stop) as caught:
                    operation.release(operation.act())
                assert caught.value is error
            elif outcome.kind is None:
                operation.release(operation.act())
            else:
                with fails_with(outcome.kind, outcome.text, cause=outcome.cause):
                    operation.release(operation.act())
        require_single_closes(shim.calls)
        left = close_what_was_left(before)
        assert len(left) <= (line.startswith("fstat ")), f"left open: {shim.calls}"


def test_a_seek_is_not_made_again(tmp_path: Path, handler: Handler) -> None:
    with pinned(make_tree(tmp_path / "root")) as reader:
        with reader.open_regular_file_for_read(LEAF, label=LABEL) as file:
            with armed() as shim, fails_with(InterruptedError, None):
                _interrupt(shim, "lseek", 1)
                reader.hash_open_regular_file(file, LEAF, label=LABEL)


def test_a_call_interrupted_many_times_is_made_until_it_is_done(
    tmp_path: Path, handler: Handler
) -> None:
    with pinned(make_tree(tmp_path / "root")) as reader:
        with armed() as shim:
            for number in range(1, 21):
                _interrupt(shim, "openat", number)
            descriptor, _ = reader._open_parent(LEAF, label=LABEL, create=False)
        os.close(descriptor)
    assert handler.signals == 20


@pytest.mark.parametrize("count", [1, 3])
def test_short_reads_are_no_end_of_the_file(tmp_path: Path, count: int) -> None:
    root = make_tree(tmp_path / "root")
    with pinned(root) as reader:
        with armed() as shim:
            shim.shorten("read", 0, count)
            content = reader.read_regular_file(LEAF, label=LABEL)
            identity = reader.hash_regular_file(LEAF, label=LABEL)
    assert content == (root / LEAF).read_bytes()
    assert identity.size_bytes == len(content)
