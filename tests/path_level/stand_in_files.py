"""Stands in for the two files of a copy, and notes what is done with each of them."""

from __future__ import annotations

from pathlib import Path
from typing import Any

from path_level.recording import Records


class StandInFile:
    """A file that gives its parts, takes what is written, and notes every call.

    Leaving it as a context closes it, so that either way of closing is noted as one.
    """

    def __init__(self, records: Records, name: str, backing: Path, parts: list[bytes]) -> None:
        self._records = records
        self._name = name
        self._backing = backing.open("wb")
        self._parts = list(parts)
        self.written = b""

    def _note(self, step: str, *args: Any) -> Any:
        assert not self._backing.closed, f"{self._name} is closed already"
        return self._records.note(-1, f"{self._name}.{step}", *args)

    def seek(self, *args: Any) -> int:
        self._note("seek", *args)
        return 0

    def truncate(self, *args: Any) -> int:
        self._note("truncate", *args)
        return 0

    def read(self, *args: Any) -> bytes:
        self._note("read", *args)
        return self._parts.pop(0) if self._parts else b""

    def write(self, *args: Any) -> int:
        self._note("write", *args)
        self.written += args[0]
        return len(args[0])

    def flush(self, *args: Any) -> None:
        self._note("flush", *args)

    def fileno(self) -> int:
        self._note("fileno")
        return self._backing.fileno()

    def close(self) -> None:
        if not self._backing.closed:
            try:
                self._note("close")
            finally:
                self._backing.close()

    def release(self) -> None:
        """Gives the descriptor back, and notes nothing."""
        self._backing.close()

    def __enter__(self) -> StandInFile:
        return self

    def __exit__(self, *details: Any) -> None:
        self.close()
