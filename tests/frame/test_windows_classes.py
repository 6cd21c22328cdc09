"""Proves the two classes for Windows: constants, members, what is overridden, plain instances."""

from __future__ import annotations

import inspect
import weakref
from typing import Any

import pytest
from brindlefen.distribution import client_manifest

from frame.surface import METHODS
from frame.windows_surface import (
    BOUNDARY_CONSTANTS,
    BOUNDARY_METHODS,
    BOUNDARY_PROPERTY,
    BOUNDARY_WITHOUT_INSTANCE,
    WINDOWS_ADDITIONS,
    WINDOWS_METHODS,
    WINDOWS_OVERRIDES,
)

POSIX: Any = client_manifest._PosixPinnedRoot
BOUNDARY: Any = client_manifest._WindowsHandleFileSystem
WINDOWS: Any = client_manifest._WindowsPinnedRoot

# What the host itself puts into the dictionary of any class.
HOST_ENTRIES = {"__module__", "__doc__", "__dict__", "__weakref__"}


def own_entries(kind: type) -> list[str]:
    return [name for name in vars(kind) if name not in HOST_ENTRIES]


# --- The native boundary


def test_the_constants_stand_in_their_order_with_their_values() -> None:
    constants = [(name, value) for name, value in vars(BOUNDARY).items() if type(value) is int]
    assert constants == list(BOUNDARY_CONSTANTS.items())


@pytest.mark.parametrize("name", BOUNDARY_CONSTANTS)
def test_a_constant_can_be_read_from_an_instance(name: str) -> None:
    assert getattr(BOUNDARY.__new__(BOUNDARY), name) == BOUNDARY_CONSTANTS[name]


def test_the_boundary_has_exactly_its_constants_and_operations() -> None:
    promised = [*BOUNDARY_CONSTANTS, *BOUNDARY_METHODS, BOUNDARY_PROPERTY]
    assert sorted(own_entries(BOUNDARY)) == sorted(promised)


def test_what_every_open_shares_is_a_value_that_can_only_be_read() -> None:
    boundary = BOUNDARY.__new__(BOUNDARY)
    assert boundary._share_access == 7
    assert inspect.isdatadescriptor(inspect.getattr_static(BOUNDARY, BOUNDARY_PROPERTY))
    with pytest.raises(AttributeError):
        boundary._share_access = 0
    assert boundary._share_access == 7


def test_some_operations_of_the_boundary_need_no_instance() -> None:
    assert BOUNDARY.split_root_path("C:\\data\\x") == ("\\\\?\\C:\\", ("data", "x"))
    assert BOUNDARY._handle_value(4) == 4


@pytest.mark.parametrize("name", sorted(BOUNDARY_WITHOUT_INSTANCE))
def test_an_operation_without_instance_works_on_one_too(name: str) -> None:
    argument = {"split_root_path": "C:\\data\\x", "_handle_value": 4}[name]
    on_instance = getattr(BOUNDARY.__new__(BOUNDARY), name)
    assert on_instance(argument) == getattr(BOUNDARY, name)(argument)


# --- The root


def test_the_root_for_windows_overrides_and_adds_exactly_what_is_promised() -> None:
    assert sorted(own_entries(WINDOWS)) == sorted(WINDOWS_METHODS)


def test_the_two_surfaces_agree_on_what_is_overridden() -> None:
    assert set(WINDOWS_OVERRIDES) <= set(METHODS)
    assert set(WINDOWS_ADDITIONS).isdisjoint(METHODS)


@pytest.mark.parametrize("name", [name for name in METHODS if name not in WINDOWS_OVERRIDES])
def test_any_other_operation_is_inherited(name: str) -> None:
    assert inspect.getattr_static(WINDOWS, name) is inspect.getattr_static(POSIX, name)


@pytest.mark.parametrize("name", WINDOWS_ADDITIONS)
def test_an_added_member_is_not_on_the_other_class(name: str) -> None:
    assert not hasattr(POSIX, name)


@pytest.mark.parametrize("name", WINDOWS_METHODS)
def test_every_member_of_the_root_needs_an_instance(name: str) -> None:
    root = WINDOWS.__new__(WINDOWS)
    assert getattr(root, name).__self__ is root


# --- Plain instances of both


@pytest.mark.parametrize("kind", [BOUNDARY, WINDOWS])
def test_an_instance_made_without_its_initialiser_has_no_attributes(kind: Any) -> None:
    assert vars(kind.__new__(kind)) == {}


@pytest.mark.parametrize("kind", [BOUNDARY, WINDOWS])
def test_an_instance_takes_any_attribute_and_a_weak_reference(kind: Any) -> None:
    made = kind.__new__(kind)
    made.colour = "green"
    reference = weakref.ref(made)
    assert reference() is made
    assert vars(made) == {"colour": "green"}
    del made
    assert reference() is None


@pytest.mark.parametrize("kind", [BOUNDARY, WINDOWS])
def test_a_class_can_be_derived_from(kind: Any) -> None:
    class Derived(kind):  # type: ignore[misc]
        """A caller's own, with an initialiser of its own."""

        def __init__(self) -> None:
            self.own = "own"

    derived = Derived()
    assert isinstance(derived, kind)
    assert vars(derived) == {"own": "own"}


@pytest.mark.parametrize("kind", [BOUNDARY, WINDOWS])
def test_a_member_can_be_shadowed_replaced_and_restored(
    kind: Any, monkeypatch: pytest.MonkeyPatch
) -> None:
    made = kind.__new__(kind)
    original = vars(kind)["close"]
    with monkeypatch.context() as patch:
        patch.setattr(kind, "close", lambda self: "the class")
        assert made.close() == "the class"
        patch.setattr(made, "close", lambda: "the instance", raising=False)
        assert made.close() == "the instance"
    assert vars(kind)["close"] is original
