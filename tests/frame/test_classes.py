"""Proves the class tree: bases, plain error classes and the plain class of the pinned root.

What the two classes for Windows add to it stands in a file of its own.
"""

from __future__ import annotations

import inspect
import pickle
import weakref
from typing import Any

import pytest
from brindlefen.distribution import client_manifest

from frame.surface import CLASS_METHODS, METHODS, STATIC_METHODS

MARKER = client_manifest._DuplicateJsonObjectKeyError
STRICT = client_manifest.StrictJsonError
MANIFEST = client_manifest.ManifestJsonError
ERRORS = [MARKER, STRICT, MANIFEST]

# What the host itself puts into the dictionary of any class.
HOST_ENTRIES = {"__module__", "__doc__", "__dict__", "__weakref__"}


@pytest.mark.parametrize(
    ("name", "bases"),
    [
        ("_DuplicateJsonObjectKeyError", (ValueError,)),
        ("StrictJsonError", (ValueError,)),
        ("ManifestJsonError", (STRICT,)),
        ("AcceptedDistributionSet", (object,)),
        ("LoadedAcceptedDistributionSet", (object,)),
        ("ContainedFileIdentity", (object,)),
        ("PinnedRoot", (object,)),
        ("_WindowsFileRenameInformationLayout", (object,)),
        ("_WindowsHandleFileSystem", (object,)),
        ("_WindowsPinnedRoot", (client_manifest._PosixPinnedRoot,)),
    ],
)
def test_a_class_has_the_promised_bases(name: str, bases: tuple[type, ...]) -> None:
    assert getattr(client_manifest, name).__bases__ == bases
    assert type(getattr(client_manifest, name)) is type


def test_the_marker_and_the_public_failure_are_siblings() -> None:
    assert not issubclass(MARKER, STRICT)
    assert not issubclass(STRICT, MARKER)
    assert not issubclass(STRICT, MANIFEST)


@pytest.mark.parametrize("kind", ERRORS)
def test_an_error_class_adds_nothing_to_its_base(kind: type[ValueError]) -> None:
    assert set(vars(kind)) <= HOST_ENTRIES


@pytest.mark.parametrize("kind", ERRORS)
def test_an_error_carries_its_single_argument(kind: type[ValueError]) -> None:
    error = kind("the text")
    assert error.args == ("the text",)
    assert str(error) == "the text"
    assert repr(error) == f"{kind.__name__}('the text')"


@pytest.mark.parametrize("kind", ERRORS)
def test_an_error_survives_pickling(kind: type[ValueError]) -> None:
    loaded = pickle.loads(pickle.dumps(kind("the text")))
    assert type(loaded) is kind
    assert loaded.args == ("the text",)


@pytest.mark.parametrize("kind", ERRORS)
def test_an_error_is_an_ordinary_exception_to_callers(kind: type[ValueError]) -> None:
    derived = type("Derived", (kind,), {})
    with pytest.raises(kind) as caught:
        raise derived("the text")
    error: Any = caught.value
    error.note = "kept"
    assert vars(error) == {"note": "kept"}


def test_the_posix_name_is_the_same_class_under_its_first_name() -> None:
    assert client_manifest.PinnedRoot is client_manifest._PosixPinnedRoot
    assert client_manifest._PosixPinnedRoot.__name__ == "PinnedRoot"


def test_the_members_of_the_pinned_root_stand_in_the_order_of_the_class_body() -> None:
    entries = vars(client_manifest.PinnedRoot)
    assert [name for name in entries if name not in HOST_ENTRIES] == list(METHODS)


@pytest.mark.parametrize("name", METHODS)
def test_a_member_is_bound_as_its_kind_says(name: str) -> None:
    member = inspect.getattr_static(client_manifest.PinnedRoot, name)
    assert isinstance(member, staticmethod) is (name in STATIC_METHODS)
    assert isinstance(member, classmethod) is (name in CLASS_METHODS)


@pytest.mark.parametrize("name", sorted(STATIC_METHODS))
def test_a_static_member_is_one_object_on_class_and_instance(name: str) -> None:
    kind = client_manifest.PinnedRoot
    assert getattr(kind.__new__(kind), name) is getattr(kind, name)


@pytest.mark.parametrize("name", sorted(CLASS_METHODS))
def test_a_class_member_is_bound_to_the_class_that_it_is_called_on(name: str) -> None:
    class Derived(client_manifest.PinnedRoot):
        """A caller's own kind of root."""

    assert getattr(Derived, name).__self__ is Derived
    assert getattr(Derived.__new__(Derived), name).__self__ is Derived


def test_an_instance_made_without_its_initialiser_has_no_attributes() -> None:
    kind = client_manifest.PinnedRoot
    assert vars(kind.__new__(kind)) == {}


def test_an_instance_takes_any_attribute_and_a_weak_reference() -> None:
    kind = client_manifest.PinnedRoot
    root: Any = kind.__new__(kind)
    root.colour = "green"
    reference = weakref.ref(root)
    assert reference() is root
    assert vars(root) == {"colour": "green"}
    del root
    assert reference() is None


def test_a_member_can_be_shadowed_replaced_and_restored(monkeypatch: pytest.MonkeyPatch) -> None:
    kind = client_manifest.PinnedRoot
    root: Any = kind.__new__(kind)
    original = vars(kind)["close"]
    with monkeypatch.context() as patch:
        patch.setattr(kind, "close", lambda self: "the class")
        assert root.close() == "the class"
        patch.setattr(root, "close", lambda: "the instance", raising=False)
        assert root.close() == "the instance"
    assert vars(kind)["close"] is original


def test_the_pinned_root_can_stand_beside_another_base() -> None:
    class Beside:
        """A base with state of its own."""

        def __init__(self) -> None:
            self.side = "own"

    class Both(Beside, client_manifest.PinnedRoot):
        """Derives from both, and is initialised by the first."""

    both = Both()
    assert vars(both) == {"side": "own"}
    assert isinstance(both, client_manifest.PinnedRoot)
