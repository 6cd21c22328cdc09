"""A FIFO at the leaf holds its reader until a writer comes or a signal handler raises."""

from __future__ import annotations

import os
import signal
import threading
from collections.abc import Callable
from pathlib import Path
from types import FrameType
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.children import run_in_child
from support.descriptors import descriptors_kept
from support.failures import fails_with

SPECIAL = "file must be a regular file: sub/fifo"
UNREADABLE = "file is a symlink or is not safely readable: sub/fifo"
OPERATIONS = [
    "open_regular_file_for_read",
    "read_regular_file",
    "read_regular_file_if_present",
    "hash_regular_file",
    "stat_regular_file",
]


@pytest.fixture
def fifo(tree: Path) -> Path:
    os.mkfifo(tree / "sub" / "fifo")
    return tree / "sub" / "fifo"


def open_for_writing(fifo: Path, ended: Callable[[], bool]) -> bool:
    """Tries for a writing end until a reader waits; False if the reader ended without one.

    The open does not block, so it can only succeed while the other side holds the FIFO.
    """
    while not ended():
        try:
            writer = os.open(fifo, os.O_WRONLY | os.O_NONBLOCK)
        except OSError:
            os.sched_yield()
            continue
        os.close(writer)
        return True
    return False


@pytest.mark.parametrize("operation", OPERATIONS)
def test_the_open_waits_for_a_writer_while_other_threads_run(
    tree: Path, fifo: Path, operation: str
) -> None:
    def child() -> None:
        ended = threading.Event()
        met: list[bool] = []
        writer = threading.Thread(
            target=lambda: met.append(open_for_writing(fifo, ended.is_set))
        )
        with PinnedRoot(tree) as root:
            with descriptors_kept(), fails_with(ValueError, SPECIAL):
                writer.start()
                try:
                    getattr(root, operation)("sub/fifo", label="file")
                finally:
                    ended.set()
                    writer.join()
        assert met == [True], "the open did not wait for a writer"

    run_in_child(child)


def test_a_subclass_waits_just_the_same(tree: Path, fifo: Path) -> None:
    class Derived(PinnedRoot):
        def _open_parent(self, relative_path: str, *, label: str, create: bool) -> Any:
            return super()._open_parent(relative_path, label=label, create=create)

    def child() -> None:
        writer = threading.Thread(target=lambda: os.close(os.open(fifo, os.O_WRONLY)))
        writer.start()
        with Derived(tree) as root, fails_with(ValueError, SPECIAL):
            root.read_regular_file("sub/fifo", label="file")
        writer.join()

    run_in_child(child)


def repeat_alarm(handler: Callable[[int, FrameType | None], None]) -> None:
    """Sends SIGALRM again and again, so that one of them meets the open in its wait."""
    signal.signal(signal.SIGALRM, handler)
    signal.setitimer(signal.ITIMER_REAL, 0.005, 0.005)


def stop_alarm() -> None:
    signal.setitimer(signal.ITIMER_REAL, 0)


def call_and_wait(operation: Callable[..., object]) -> object:
    return operation("sub/fifo", label="file")


def raise_within_the_wait(error: BaseException) -> Callable[[int, FrameType | None], None]:
    """A handler that raises, but only once `call_and_wait` has made its call."""
    call_line = call_and_wait.__code__.co_firstlineno + 1

    def handler(number: int, frame: FrameType | None) -> None:
        while frame is not None and frame.f_code is not call_and_wait.__code__:
            frame = frame.f_back
        if frame is not None and frame.f_lineno == call_line:
            stop_alarm()
            raise error

    return handler


@pytest.mark.parametrize(
    ("kind", "raised", "text", "cause"),
    [
        (KeyError, KeyError, "'enough'", None),
        (KeyboardInterrupt, KeyboardInterrupt, "enough", None),
        (TimeoutError, ValueError, UNREADABLE, TimeoutError),
    ],
)
def test_a_handler_that_raises_ends_the_wait(
    tree: Path,
    fifo: Path,
    kind: type[BaseException],
    raised: type[BaseException],
    text: str,
    cause: type[BaseException] | None,
) -> None:
    def child() -> None:
        with PinnedRoot(tree) as root:
            with descriptors_kept(), fails_with(raised, text, cause=cause):
                repeat_alarm(raise_within_the_wait(kind("enough")))
                call_and_wait(root.hash_regular_file)

    run_in_child(child)


def test_a_missing_file_error_of_a_handler_counts_as_absence(tree: Path, fifo: Path) -> None:
    def child() -> None:
        handler = raise_within_the_wait(FileNotFoundError("by the handler"))
        with PinnedRoot(tree) as root, descriptors_kept():
            repeat_alarm(handler)
            assert call_and_wait(root.read_regular_file_if_present) is None
        handler = raise_within_the_wait(FileNotFoundError("by the handler"))
        with PinnedRoot(tree) as root, descriptors_kept():
            with fails_with(FileNotFoundError, "by the handler"):
                repeat_alarm(handler)
                call_and_wait(root.open_regular_file_for_read)

    run_in_child(child)


def test_a_handler_that_returns_lets_the_wait_go_on(tree: Path, fifo: Path) -> None:
    def child() -> None:
        handled = threading.Event()
        ended = threading.Event()
        met: list[bool] = []

        def write_after_signal() -> None:
            handled.wait()
            met.append(open_for_writing(fifo, ended.is_set))

        writer = threading.Thread(target=write_after_signal)
        with PinnedRoot(tree) as root, descriptors_kept(), fails_with(ValueError, SPECIAL):
            writer.start()
            repeat_alarm(lambda number, frame: handled.set())
            try:
                root.read_regular_file("sub/fifo", label="file")
            finally:
                ended.set()
                stop_alarm()
                writer.join()
        assert met == [True]

    run_in_child(child)


def test_the_proof_of_a_leaf_that_became_a_fifo_does_not_wait(tree: Path) -> None:
    found = (tree / "file.bin").stat()
    (tree / "file.bin").unlink()
    os.mkfifo(tree / "file.bin")

    def child() -> None:
        with PinnedRoot(tree) as root:
            text = "file path became a symlink or non-regular file: file.bin"
            with descriptors_kept(), fails_with(ValueError, text):
                root._assert_path_matches_regular_file(
                    "file.bin", label="file", expected_stat=found
                )

    run_in_child(child)
