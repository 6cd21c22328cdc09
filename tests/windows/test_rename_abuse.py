"""Hands hostile values to the making of the rename record: they are refused, never followed."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import pytest
from brindlefen.distribution import client_manifest

from pinned_root.hostile import Own, raise_own
from support.failures import fails_with

BAD_PARITY = "Windows rename file-name bytes must contain complete WCHARs"


def rename_bytes(parent: Any, name: Any, *, replace: Any = False, pointer_size: Any = 8) -> Any:
    return client_manifest._windows_file_rename_information_bytes(
        parent, name, replace=replace, pointer_size=pointer_size
    )


class Loud:
    """Refuses to say whether it is true."""

    __bool__ = raise_own


def test_a_flag_that_refuses_to_be_read_raises_its_own() -> None:
    with fails_with(Own, "mine"):
        rename_bytes(1, b"", replace=Loud())


def test_the_flag_is_read_after_all_checks() -> None:
    with fails_with(ValueError, BAD_PARITY):
        rename_bytes(1, b"a", replace=Loud())


class LongBytes(bytes):
    """Says that it is longer than it is."""

    def __len__(self) -> int:
        return 1 << 20


class ShortBytes(bytes):
    """Says that it is empty."""

    def __len__(self) -> int:
        return 0


class NegativeBytes(bytes):
    """Gives a length that no length can be."""

    def __len__(self) -> int:
        return -2


class LoudBytes(bytes):
    """Refuses every question about itself."""

    __len__ = __iter__ = __getitem__ = __bytes__ = __eq__ = __bool__ = raise_own
    __hash__ = bytes.__hash__


@pytest.mark.parametrize("kind", [LongBytes, ShortBytes, NegativeBytes, LoudBytes])
@pytest.mark.parametrize("pointer_size", [4, 8])
def test_a_name_that_lies_about_itself_ends_in_bytes_or_a_refusal(
    kind: type[bytes], pointer_size: int
) -> None:
    try:
        made = rename_bytes(1, kind(b"a\0b\0"), pointer_size=pointer_size)
    except (Own, ValueError, TypeError, BufferError):
        return
    assert type(made) is bytes
    assert made[0] == 0


class LyingInteger(int):
    """Always compares as it is asked to, and hands out other bytes than its own."""

    def always(self, other: object) -> bool:
        return True

    __lt__ = __le__ = __gt__ = __ge__ = __eq__ = always
    __hash__ = int.__hash__

    def to_bytes(self, *args: Any, **kwargs: Any) -> Any:
        return b"x" * 100


class LoudInteger(int):
    """Refuses every question that a check may ask."""

    __lt__ = __le__ = __gt__ = __ge__ = __eq__ = __mul__ = __rmul__ = __index__ = raise_own
    to_bytes = raise_own
    __hash__ = int.__hash__


@pytest.mark.parametrize(
    "parent",
    [
        LyingInteger(-1),
        LyingInteger(1 << 100),
        LoudInteger(5),
        5.0,
        float("nan"),
        None,
        "5",
        b"5",
        [],
        object(),
    ],
)
@pytest.mark.parametrize("pointer_size", [4, 8])
def test_a_strange_handle_ends_in_bytes_or_a_refusal(parent: object, pointer_size: int) -> None:
    try:
        made = rename_bytes(parent, b"a\0", pointer_size=pointer_size)
    except (Own, ValueError, TypeError, AttributeError, OverflowError):
        return
    assert type(made) is bytes


@pytest.mark.parametrize(
    "pointer_size",
    [LyingInteger(3), LoudInteger(8), 8.0, None, "8", b"8", object(), 1 << 80, True],
)
def test_a_strange_pointer_size_ends_in_bytes_or_a_refusal(pointer_size: object) -> None:
    try:
        made = rename_bytes(5, b"a\0", pointer_size=pointer_size)
    except (Own, ValueError, TypeError, AttributeError, OverflowError, MemoryError):
        return
    assert type(made) is bytes


def test_the_layout_is_the_one_that_the_module_holds_when_it_is_called(
    monkeypatch: pytest.MonkeyPatch,
) -> None:
    asked = []

    def layout(*args: Any) -> Any:
        asked.append(args)
        return client_manifest._WindowsFileRenameInformationLayout(2, 12, 18, 8, 24, 30)

    monkeypatch.setattr(client_manifest, "_windows_file_rename_information_layout", layout)
    made = rename_bytes(7, b"a\0", replace=True)
    assert asked == [(8, 2)]
    assert made == b"\x01\0" + b"\x07" + bytes(7) + bytes(2) + b"\x02\0\0\0" + bytes(2) + b"a\0" + (
        bytes(10)
    )


@pytest.mark.parametrize(
    "give",
    [
        lambda layout: layout(8, 16, 20, 8, 24, 0),
        lambda layout: layout(8, 16, 20, 8, 24, 3),
        lambda layout: layout(8, 16, 20, 8, 24, -1),
        lambda layout: layout(-3, -50, -9, 8, 24, 26),
        lambda layout: layout(1 << 70, 1 << 70, 1 << 70, 8, 24, 26),
        lambda layout: layout(8, 16, 20, 8, 24, 1 << 70),
        lambda layout: layout(None, "a", b"", 8, 24, 26),
        lambda layout: layout(8.0, 16.0, 20.0, 8, 24, 26.0),
        lambda layout: None,
    ],
)
def test_a_replaced_layout_that_lies_ends_in_bytes_or_a_refusal(
    monkeypatch: pytest.MonkeyPatch, give: Callable[[Any], Any]
) -> None:
    answer = give(client_manifest._WindowsFileRenameInformationLayout)
    monkeypatch.setattr(
        client_manifest, "_windows_file_rename_information_layout", lambda *args: answer
    )
    try:
        made = rename_bytes(7, b"a\0", replace=True)
    except (
        ValueError, TypeError, AttributeError, IndexError, OverflowError, MemoryError
    ):
        return
    assert type(made) is bytes


def test_a_layout_that_fails_is_passed_on(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(client_manifest, "_windows_file_rename_information_layout", raise_own)
    with fails_with(Own, "mine"):
        rename_bytes(1, b"")
