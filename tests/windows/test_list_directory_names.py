"""A listing names the real directories right below the root, and passes over all else."""

from __future__ import annotations

from typing import Any

import pytest

from support.failures import fails_with
from windows.planted import CLOSED, Pin, at, planted
from windows.volume import DIRECTORY, DIRECTORY_REPARSE, FILE_REPARSE, Volume

SHOWN = {"Zeta": DIRECTORY, "alpha": DIRECTORY, ".hidden": DIRECTORY, "é": DIRECTORY}
EXPECTED = tuple(sorted(["sub", *SHOWN]))


@pytest.fixture
def root(volume: Volume, pin: Pin) -> Any:
    links = {"link": FILE_REPARSE, "junction": DIRECTORY_REPARSE}
    return planted(volume, pin, {**SHOWN, **links, "file": b""})


def test_directories_are_named_in_the_order_of_text(root: Any) -> None:
    assert root.list_directory_names() == EXPECTED


def test_an_empty_root_has_no_names(volume: Volume, pin: Pin) -> None:
    assert pin().list_directory_names() == ()


@pytest.mark.parametrize(
    "error", [FileNotFoundError("gone"), OSError(5, "held"), PermissionError()]
)
def test_an_entry_that_does_not_open_is_passed_over(
    root: Any, boundary: Any, error: OSError
) -> None:
    boundary.calls.clear()
    root.list_directory_names()
    opened = [call.args[1] for call in boundary.calls if call.name == "open_entry"]
    boundary.hook("open_entry", opened.index("sub") + 1, raises=error)
    assert root.list_directory_names() == tuple(name for name in EXPECTED if name != "sub")


def test_an_entry_that_goes_while_it_is_listed_is_passed_over(
    root: Any, volume: Volume, boundary: Any
) -> None:
    boundary.hook("list_names", 1, after=lambda: volume.remove(at("alpha")))
    assert root.list_directory_names() == tuple(name for name in EXPECTED if name != "alpha")


def test_an_entry_under_deletion_is_passed_over(root: Any, volume: Volume) -> None:
    let_go = volume.pend(at("alpha"))
    assert "alpha" not in root.list_directory_names()
    let_go()


def test_an_entry_that_turns_into_a_junction_is_passed_over(
    root: Any, volume: Volume, boundary: Any
) -> None:
    boundary.hook("list_names", 1, after=lambda: volume.make_reparse(at("alpha")))
    assert "alpha" not in root.list_directory_names()


@pytest.mark.parametrize("step", ["kind", "is_reparse", "list_names"])
def test_a_failure_of_any_other_kind_ends_the_listing(
    root: Any, boundary: Any, step: str
) -> None:
    boundary.hook(step, 1, raises=OSError(5, "unknown"))
    with fails_with(OSError, "[Errno 5] unknown"):
        root.list_directory_names()


def test_an_open_that_fails_in_another_way_ends_the_listing(root: Any, boundary: Any) -> None:
    boundary.hook("open_entry", 1, raises=ValueError("odd name"))
    with fails_with(ValueError, "odd name"):
        root.list_directory_names()


def test_nothing_is_opened_to_be_deleted(root: Any, boundary: Any) -> None:
    root.list_directory_names()
    opened = [call for call in boundary.calls if call.name == "open_entry"]
    assert all(call.kwargs == {"delete": False} for call in opened)


def test_each_entry_is_closed_before_the_next_is_opened(
    root: Any, volume: Volume, boundary: Any
) -> None:
    held: list[int] = []
    for number in range(1, 6):
        boundary.hook("open_entry", number, before=lambda: held.append(len(volume.open_handles)))
    root.list_directory_names()
    assert held == [2] * 5


def test_names_that_the_volume_keeps_may_be_long_and_many(volume: Volume, pin: Pin) -> None:
    names = [f"{number:03}" + "n" * 240 for number in range(200)]
    volume.plant({at(name): DIRECTORY for name in names})
    assert pin().list_directory_names() == tuple(names)


def test_the_root_is_neither_proved_nor_walked_to(root: Any, volume: Volume) -> None:
    volume.move("data", "aside")
    assert root.list_directory_names() == EXPECTED


def test_a_closed_root_has_no_listing(root: Any) -> None:
    root.close()
    with fails_with(RuntimeError, CLOSED):
        root.list_directory_names()


def test_a_contained_root_lists_its_own(root: Any) -> None:
    with root.open_contained_root("sub", label="sub") as contained:
        assert contained.list_directory_names() == ("deep",)
