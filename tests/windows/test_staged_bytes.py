"""A write stages its bytes through the boundary's file, flushed to the disk, or takes them away."""

from __future__ import annotations

from typing import Any

import pytest

from windows.planted import FILES, PATH, Pin, at, files, planted
from windows.substitute import SubstituteBoundary
from windows.volume import Volume


class Stream:
    """A file of the boundary's own, which notes what is done with it."""

    def __init__(self, file: Any, fails_at: str = "") -> None:
        self._file = file
        self._fails_at = fails_at
        self.noted: list[tuple[str, tuple[Any, ...]]] = []

    def __enter__(self) -> Stream:
        self._file.__enter__()
        return self

    def __exit__(self, *failure: Any) -> None:
        self._file.close()
        self.noted.append(("exit", tuple(failure[:1])))

    def __getattr__(self, name: str) -> Any:
        operation = getattr(self._file, name)

        def noting(*args: Any) -> Any:
            self.noted.append((name, args))
            if name == self._fails_at:
                raise OSError(28, "no room")
            return operation(*args)

        return noting


def streaming(
    boundary: SubstituteBoundary, monkeypatch: pytest.MonkeyPatch, fails_at: str = ""
) -> list[Stream]:
    streams: list[Stream] = []
    base = boundary.file_object

    def file_object(handle: int, mode: str) -> Any:
        streams.append(Stream(base(handle, mode), fails_at))
        return streams[-1]

    monkeypatch.setattr(boundary, "file_object", file_object)
    return streams


STAGING = [("seek", (0,)), ("truncate", ()), ("write", (b"new",)), ("flush", ()), ("fileno", ())]


def test_the_staged_bytes_are_written_through_the_boundarys_file(
    volume: Volume, pin: Pin, boundary: SubstituteBoundary, monkeypatch: pytest.MonkeyPatch
) -> None:
    root = planted(volume, pin)
    streams = streaming(boundary, monkeypatch)
    root.write_atomic(PATH, b"new", allow_replace=True)
    assert [stream.noted for stream in streams] == [[*STAGING, ("exit", (None,))]]
    assert volume.read(at(PATH)) == b"new"


@pytest.mark.parametrize("step", range(len(STAGING)), ids=[name for name, _ in STAGING])
def test_a_file_that_fails_while_it_is_staged_is_taken_away(
    volume: Volume,
    pin: Pin,
    boundary: SubstituteBoundary,
    monkeypatch: pytest.MonkeyPatch,
    step: int,
) -> None:
    root = planted(volume, pin)
    streams = streaming(boundary, monkeypatch, STAGING[step][0])
    with pytest.raises(OSError, match="no room") as caught:
        root.write_atomic(PATH, b"new", allow_replace=True)
    assert caught.value.__cause__ is None
    assert streams[0].noted == [*STAGING[: step + 1], ("exit", (OSError,))]
    assert files(volume) == FILES
