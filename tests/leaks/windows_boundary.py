"""Leak scenarios of what the Windows boundary does on every platform: records, paths, refusals."""

from __future__ import annotations

from pathlib import PurePosixPath
from typing import Any

from brindlefen.distribution import client_manifest

from leaks.scenarios import Ground, Hostile, Own, Scenario

SCENARIOS: dict[str, Scenario] = {}

NAME = "a new name".encode("utf-16-le")


class Name(bytes):
    """Bytes with attributes, as a caller may have them."""


def _layout(
    name: str,
    pointer_size: Any,
    file_name_length: Any,
    failure: type[BaseException] | None = None,
) -> None:
    def act(ground: Ground) -> object:
        return client_manifest._windows_file_rename_information_layout(
            pointer_size, file_name_length
        )

    SCENARIOS[f"layout, {name}"] = Scenario(act, failure)


def _record(
    name: str,
    parent: Any = 70_000,
    encoded: Any = NAME,
    failure: type[BaseException] | None = None,
    *,
    replace: Any = True,
    pointer_size: Any = 8,
) -> None:
    def act(ground: Ground) -> object:
        return client_manifest._windows_file_rename_information_bytes(
            parent, encoded, replace=replace, pointer_size=pointer_size
        )

    SCENARIOS[f"record, {name}"] = Scenario(act, failure)


def _split(name: str, path: Any, failure: type[BaseException] | None = None) -> None:
    def act(ground: Ground) -> object:
        return client_manifest._WindowsHandleFileSystem.split_root_path(path)

    SCENARIOS[f"root path, {name}"] = Scenario(act, failure)


# --- Rename records

_layout("narrow", 4, 10_000)
_layout("wide", 8, 10_000)
_layout("no pointer", 3, -1, ValueError)
_layout("too long", 8, 1 << 70, ValueError)
_layout("half a character", 8, 10_001, ValueError)
_layout("hostile width", Hostile(), 2, Own)
_layout("hostile length", 8, Hostile(), TypeError)

_record("wide")
_record("narrow", pointer_size=4)
_record("empty", encoded=b"", replace=[])
_record("a kind of bytes", encoded=Name(NAME))
_record("no bytes", encoded=bytearray(NAME), failure=TypeError)
_record("no room for the handle", 1 << 64, failure=ValueError)
_record("a negative handle", -1, failure=ValueError)
_record("a hostile handle", Hostile(), failure=TypeError)
_record("no pointer", 10, pointer_size=2, failure=ValueError)
_record("a negative pointer", 10, pointer_size=-1, failure=ValueError)
_record("half a character", encoded=b"abc", failure=ValueError)
_record("no truth", replace=Hostile(), failure=Own)

# --- Root paths

_split("text", "C:\\data\\x")
_split("prefixed", "\\\\?\\C:/data//x/")
_split("path-like", PurePosixPath("C:/data"))
_split("of a server", "\\\\server\\share\\data", ValueError)
_split("of a prefixed server", "\\\\?\\unc\\server\\share", ValueError)
_split("no drive", "/data", ValueError)
_split("no path", 3, TypeError)
_split("bytes", b"C:\\data", TypeError)


def _handle(name: str, value: Any, failure: type[BaseException] | None = None) -> None:
    def act(ground: Ground) -> object:
        return client_manifest._WindowsHandleFileSystem._handle_value(value)

    SCENARIOS[f"handle, {name}"] = Scenario(act, failure)


class Valued:
    value = 70_000


_handle("a number", 70_000)
_handle("with a value", Valued())
_handle("null", None, OSError)
_handle("hostile", Hostile(), Own)


def _build_off_windows(ground: Ground) -> object:
    return client_manifest._WindowsHandleFileSystem()


def _pin_off_windows(ground: Ground) -> object:
    return client_manifest._WindowsPinnedRoot("C:\\data")


SCENARIOS["a boundary off Windows"] = Scenario(_build_off_windows, NotImplementedError)
SCENARIOS["a root off Windows"] = Scenario(_pin_off_windows, NotImplementedError)
