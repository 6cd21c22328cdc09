"""A handle is given up once, whatever a boundary hands out and whatever keeps it from its owner."""

from __future__ import annotations

from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.failures import fails_with
from windows.conftest import Pin
from windows.substitute import SubstituteBoundary
from windows.volume import Volume


def test_what_is_no_handle_is_handed_on_and_not_closed(
    hostile: Volume,
) -> None:
    boundary: Any = SubstituteBoundary(hostile)
    root: Any = client_manifest._WindowsPinnedRoot("C:\\data", _boundary=boundary)
    boundary.hook("duplicate", 1, returns=None)
    before = boundary.names_called().count("close")
    assert root._open_parent("leaf", label="what", create=False) == (None, "leaf")
    boundary.hook("duplicate", 1, returns=None)
    assert root._open_directory_components(root._descriptor, (), label="what") is None
    assert boundary.names_called().count("close") == before
    root.close()


@pytest.mark.parametrize("refused", ["_anchor_handle", "_pending_update_identities", "_descriptor"])
def test_a_child_that_refuses_an_attribute_leaves_no_handle(
    volume: Volume, boundary: SubstituteBoundary, refused: str
) -> None:
    volume.plant({"data/sub/file": b"content"})

    class Refusing(client_manifest._WindowsPinnedRoot):
        refuses = False

        def __setattr__(self, name: str, value: Any) -> None:
            if self.refuses and name == refused:
                raise RuntimeError("no")
            super().__setattr__(name, value)

    root = Refusing("C:\\data", _boundary=boundary)
    Refusing.refuses = True
    held = set(volume.open_handles)
    with fails_with(RuntimeError, "no"):
        root.open_contained_root("sub", label="child")
    assert set(volume.open_handles) == held
    Refusing.refuses = False
    root.close()


def test_a_second_close_touches_nothing(pin: Pin) -> None:
    root = pin()
    root.close()
    given: list[str] = []

    class Watched(type(root)):  # type: ignore[misc]
        def __setattr__(self, name: str, value: Any) -> None:
            given.append(name)

    root.__class__ = Watched
    root.close()
    assert given == []
