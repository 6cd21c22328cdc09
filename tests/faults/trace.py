"""Turns recorded calls into lines that name each descriptor by the place that it was opened at."""

from __future__ import annotations

import errno
import os
import re
from collections.abc import Iterable, Mapping
from types import MappingProxyType

from faults.injection import Call

DIRECTORY_FLAGS = os.O_RDONLY | os.O_CLOEXEC | os.O_DIRECTORY | os.O_NOFOLLOW
LEAF_FLAGS = os.O_RDONLY | os.O_CLOEXEC | os.O_NOFOLLOW
SOURCE_FLAGS = LEAF_FLAGS | os.O_NONBLOCK
STAGE_FLAGS = os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_CLOEXEC | os.O_NOFOLLOW
UPDATE_FLAGS = os.O_RDWR | os.O_CLOEXEC | os.O_NOFOLLOW
AT_SYMLINK_NOFOLLOW = 0x100
AT_REMOVEDIR = 0x200

_FLAG_WORDS = {
    DIRECTORY_FLAGS: "directory",
    LEAF_FLAGS: "leaf",
    SOURCE_FLAGS: "source",
    STAGE_FLAGS: "stage",
    UPDATE_FLAGS: "update",
    UPDATE_FLAGS | os.O_CREAT: "update-or-create",
}

# How many rounds of a stream there are is free: such calls of one file are told as one line.
_STREAMED = ("read", "write")
# Where a file object stands in its file is free, and so is how many entries one look into a
# directory brings; a listing that fails is told.
_UNTOLD = ("lseek", "readdir")

_STAGED_NAME = re.compile(r"(\..+)\.\d+\.\d+\.[0-9a-f]{16}\.tmp")
_TRANSFER_NAME = re.compile(r"(.+)\.[0-9a-f]{16}\.tmp")


NO_PINS: Mapping[str, str] = MappingProxyType({})


class Narrator:
    """Follows descriptors from call to call.

    A duplicate of the place `root` is called `root*`, and what is opened below it `root*/sub`.
    A second open of a place that is still open gets an apostrophe. `pins` gives the first open of
    a path a name, as a root has one that is pinned and closed within the calls.
    """

    def __init__(self, names: Mapping[int, str], pins: Mapping[str, str] = NO_PINS) -> None:
        self._places = dict(names)
        self._pins = dict(pins)

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
                mode = [f"{call.mode:o}"] if call.mode else []
                return ["openat", place, _told_name(call.name), _flag_word(call.flags), *mode]
            case "fstatat":
                word = "nofollow" if call.flags == AT_SYMLINK_NOFOLLOW else hex(call.flags)
                return ["fstatat", place, _told_name(call.name), word]
            case "mkdirat":
                return ["mkdirat", place, call.name, f"{call.mode:o}"]
            case "unlinkat":
                word = {0: "", AT_REMOVEDIR: " directory"}.get(call.flags, f" {call.flags:#x}")
                return ["unlinkat", place, _told_name(call.name) + word]
            case "renameat" | "linkat":
                ends = [place, _told_name(call.name), "to"]
                ends += [self.place(call.other_fd), _told_name(call.other_name)]
                return [call.kind, *ends] + ([f"{call.flags:#x}"] if call.flags else [])
            case "ftruncate":
                return ["ftruncate", place, str(call.size)]
            case "dup":
                return ["dup", place] + ([] if call.flags else ["inheritable"])
            case _:
                return [call.kind, place]

    def _follow(self, call: Call) -> None:
        if call.kind in ("close", "closedir"):
            # A failing close has released its descriptor all the same.
            self._places.pop(call.fd, None)
        elif call.error != 0:
            return
        elif call.kind == "open":
            self._places[call.result] = self._fresh(call.name)
        elif call.kind == "openat":
            above = self.place(call.fd)
            place = f"{above.rstrip('/')}/{_told_name(call.name)}"
            self._places[call.result] = self._fresh(self._pins.pop(place, place))
        elif call.kind == "dup":
            self._places[call.result] = self._fresh(self.place(call.fd) + "*")

    def _fresh(self, place: str) -> str:
        while place in self._places.values():
            place += "'"
        return place


def _flag_word(flags: int) -> str:
    return _FLAG_WORDS.get(flags, hex(flags))


def _told_name(name: str) -> str:
    """Names with a number drawn for one call are told without it: `.leaf.tmp` and `leaf.tmp`."""
    drawn = _STAGED_NAME.fullmatch(name) or _TRANSFER_NAME.fullmatch(name)
    return f"{drawn[1]}.tmp" if drawn else name


def essential(
    calls: Iterable[Call], names: Mapping[int, str], pins: Mapping[str, str] = NO_PINS
) -> list[str]:
    """The calls whose number and order are fixed."""
    return [line for line, _ in grouped(calls, names, pins)]


def grouped(
    calls: Iterable[Call], names: Mapping[int, str], pins: Mapping[str, str] = NO_PINS
) -> list[tuple[str, list[int]]]:
    """The essential lines, each with the numbers (from 1) of the calls that it stands for.

    How a file is streamed is free: seeks do not show, and a run of reads or of writes of one file
    is one line with the sum of its bytes. Reads that stopped ahead of the end of the file say so.
    """
    narrator = Narrator(names, pins)
    told: list[tuple[str, list[int]]] = []
    run: list[tuple[int, Call]] = []
    for number, call in enumerate(calls, start=1):
        if call.kind in _UNTOLD and call.error == 0:
            continue
        if run and (call.kind, call.fd) != (run[0][1].kind, run[0][1].fd):
            told += _told_run(run, narrator)
            run = []
        if call.kind in _STREAMED:
            run.append((number, call))
        else:
            told.append((narrator.line(call), [number]))
    return told + _told_run(run, narrator)


def opening(
    calls: Iterable[Call], names: Mapping[int, str], pins: Mapping[str, str] = NO_PINS
) -> list[tuple[str, list[int]]]:
    """The same for calls that make file objects of the host.

    Such an object looks once more at the descriptor that it is given, directly after we did.
    """
    told: list[tuple[str, list[int]]] = []
    for line, numbers in grouped(calls, names, pins):
        if not (told and line == told[-1][0] and line.startswith("fstat ")):
            told.append((line, numbers))
    return told


def _told_run(run: list[tuple[int, Call]], narrator: Narrator) -> list[tuple[str, list[int]]]:
    if not run:
        return []
    last = run[-1][1]
    total = sum(max(call.result, 0) for _, call in run)
    end = ", not to the end" if last.kind == "read" and last.result != 0 else ""
    line = f"{last.kind} {narrator.place(last.fd)} {total} bytes{end}"
    return [(line, [number for number, _ in run])]


def require_single_closes(calls: Iterable[Call]) -> None:
    """No descriptor is closed again after a close, be it one that failed.

    Its number may by then belong to another thread.
    """
    released: set[int] = set()
    for number, call in enumerate(calls):
        if call.kind in ("close", "closedir"):
            assert call.fd not in released, f"call {number} closes {call.fd} a second time"
            released.add(call.fd)
        elif call.kind in ("open", "openat", "dup") and call.error == 0:
            released.discard(call.result)
