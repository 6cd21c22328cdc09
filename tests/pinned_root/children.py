"""Runs a block in a forked child, so that it may hang, die or drop its rights without harm."""

from __future__ import annotations

import os
import select
import signal
import traceback
from collections.abc import Callable

_HANG_SECONDS = 120


def run_in_child(action: Callable[[], None]) -> None:
    """Requires `action` to end without an exception in a child process of its own.

    A child that does not end is killed: a hang fails the test instead of the whole run.
    """
    reader, writer = os.pipe()
    child = os.fork()
    if child == 0:
        os.close(reader)
        _run_and_exit(action, writer)
    os.close(writer)
    try:
        told = _read_all(reader, child)
    finally:
        os.close(reader)
        _, status = os.waitpid(child, 0)
    assert os.waitstatus_to_exitcode(status) == 0, told or "the child died without a word"


def _run_and_exit(action: Callable[[], None], writer: int) -> None:
    status = 1
    try:
        action()
        status = 0
    except BaseException:
        os.write(writer, traceback.format_exc()[-60_000:].encode("utf-8", "replace"))
    finally:
        os._exit(status)


def _read_all(reader: int, child: int) -> str:
    told = b""
    while True:
        ready, _, _ = select.select([reader], [], [], _HANG_SECONDS)
        if not ready:
            os.kill(child, signal.SIGKILL)
            return "the child hung"
        part = os.read(reader, 65_536)
        if not part:
            return told.decode("utf-8", "replace")
        told += part


def drop_rights() -> None:
    """Leaves the superuser for good, in a child: root is refused nothing on the disk."""
    if os.geteuid() == 0:
        os.setgroups([])
        os.setgid(65_534)
        os.setuid(65_534)
