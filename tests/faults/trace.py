"""Turns recorded calls into lines that name each descriptor by the place that it was opened at."""

from __future__ import annotations

import errno
import os
from collections.abc import Iterable, Mapping

from faults.injection import Call

DIRECTORY_FLAGS = os.O_RDONLY | os.O_CLOEXEC | os.O_DIRECTORY | os.O_NOFOLLOW
LEAF_FLAGS = os.O_RDONLY | os.O_CLOEXEC | os.O_NOFOLLOW
AT_SYMLINK_NOFOLLOW = 0x100

_FLAG_WORDS = {DIRECTORY_FLAGS: "directory", LEAF_FLAGS: "leaf"}


class Narrator:
    """Follows descriptors from call to call.

    A duplicate of the place `root` is called `root*`, and what is opened below it `root*/sub`.
    A second open of a place that is still open gets an apostrophe.
    """

    def __init__(self, names: Mapping[int, str]) -> None:
        self._places = dict(names)

    def line(self, call: Call) -> str:
        words = self._words(call)
        if call.error != 0:
            words += ["->", errno.errorcode[call.error]]
        self._follow(call)
        return " ".join(words)

    def place(self, descriptor: int) -> str:
        return self._places.get(descriptor, f"?{descriptor}")

    def _words(self, call: Call) -> list[str]:
        place = self.place(call.fd)
        match call.kind:
            case "open":
                return ["open", call.name, _flag_word(call.flags)]
            case "openat":
                return ["openat", place, call.name, _flag_word(call.flags)]
            case "fstatat":
                word = "nofollow" if call.flags == AT_SYMLINK_NOFOLLOW else hex(call.flags)
                return ["fstatat", place, call.name, word]
            case "mkdirat":
                return ["mkdirat", place, call.name, f"{call.mode:o}"]
            case "dup":
                return ["dup", place] + ([] if call.flags else ["inheritable"])
            case _:
                return [call.kind, place]

    def _follow(self, call: Call) -> None:
        if call.kind == "close":
            # A failing close has released its descriptor all the same.
            self._places.pop(call.fd, None)
        elif call.error != 0:
            return
        elif call.kind == "open":
            self._places[call.result] = self._fresh(call.name)
        elif call.kind == "openat":
            above = self.place(call.fd)
            self._places[call.result] = self._fresh(f"{above.rstrip('/')}/{call.name}")
        elif call.kind == "dup":
            self._places[call.result] = self._fresh(self.place(call.fd) + "*")

    def _fresh(self, place: str) -> str:
        while place in self._places.values():
            place += "'"
        return place


def _flag_word(flags: int) -> str:
    return _FLAG_WORDS.get(flags, hex(flags))


def essential(calls: Iterable[Call], names: Mapping[int, str]) -> list[str]:
    """The calls whose number and order are fixed."""
    return [line for line, _ in grouped(calls, names)]


def grouped(calls: Iterable[Call], names: Mapping[int, str]) -> list[tuple[str, list[int]]]:
    """The essential lines, each with the numbers (from 1) of the calls that it stands for.

    How a file is consumed is free: seeks do not show, and a run of reads of one file is one line
    with the sum of its bytes. A run that stopped ahead of the end of the file says so.
    """
    narrator = Narrator(names)
    told: list[tuple[str, list[int]]] = []
    run: list[tuple[int, Call]] = []
    for number, call in enumerate(calls, start=1):
        if call.kind == "lseek":
            continue
        if call.kind == "read":
            run.append((number, call))
            continue
        told += _told_run(run, narrator)
        run = []
        told.append((narrator.line(call), [number]))
    return told + _told_run(run, narrator)


def _told_run(run: list[tuple[int, Call]], narrator: Narrator) -> list[tuple[str, list[int]]]:
    if not run:
        return []
    places = {narrator.place(call.fd) for _, call in run}
    assert len(places) == 1, f"reads of several files are mixed: {places}"
    total = sum(max(call.result, 0) for _, call in run)
    end = "" if run[-1][1].result == 0 else ", not to the end"
    return [(f"read {places.pop()} {total} bytes{end}", [number for number, _ in run])]


def require_single_closes(calls: Iterable[Call]) -> None:
    """No descriptor is closed again after a close, be it one that failed.

    Its number may by then belong to another thread.
    """
    released: set[int] = set()
    for number, call in enumerate(calls):
        if call.kind == "close":
            assert call.fd not in released, f"call {number} closes {call.fd} a second time"
            released.add(call.fd)
        elif call.kind in ("open", "openat", "dup") and call.error == 0:
            released.discard(call.result)
