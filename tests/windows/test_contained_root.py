"""A contained root owns two handles of its own, and proves itself from the topmost root's."""

from __future__ import annotations

from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.failures import fails_with
from windows.conftest import Pin
from windows.substitute import SubstituteBoundary
from windows.volume import DIRECTORY, Volume
from windows.walked import (
    REPARSE_DIRECTORY,
    ROOT_CHANGED,
    ROOT_UNSAFE,
    called,
    handles_kept,
    not_a_directory,
)

Root: Any = client_manifest._WindowsPinnedRoot

EXACT = "manifest relative path must be an exact relative POSIX path"
SEGMENTS = "manifest relative path must not contain empty, dot, or parent segments"
NO_TEXT = "manifest relative path must be a string"


def test_a_contained_root_has_what_it_was_opened_with(
    planted: Volume, boundary: SubstituteBoundary, pin: Pin
) -> None:
    root = pin()
    with root.open_contained_root("sub/deep", label="child") as child:
        assert type(child) is Root
        assert child.path == Path("C:\\data") / "sub" / "deep"
        assert child._boundary is boundary
        assert (child._volume_path, child._root_components) == ("\\\\?\\C:\\", ("data",))
        assert child._anchor_components == ("sub", "deep")
        assert child._contained_root_label == "child"
        assert child._pending_update_identities == {}
        assert child._pending_update_identities is not root._pending_update_identities
        assert child._root_identity == planted.identity_of("data/sub/deep")
        assert planted.path_of(child._descriptor) == "data/sub/deep"
        assert planted.path_of(child._anchor_handle) == "data"
        assert len({root._descriptor, child._descriptor, child._anchor_handle}) == 3


def test_the_chain_is_walked_again_from_the_topmost_root(planted: Volume, pin: Pin) -> None:
    root = pin()
    first = root.open_contained_root("sub", label="first")
    root.close()
    second = first.open_contained_root("deep", label="second")
    first.close()
    assert second.path == Path("C:\\data") / "sub" / "deep"
    assert second._anchor_components == ("sub", "deep")
    assert second._contained_root_label == "second"
    assert second._root_components == ("data",)
    assert planted.path_of(second._anchor_handle) == "data"
    planted.replace("data/sub", DIRECTORY)
    with fails_with(ValueError, ROOT_UNSAFE, cause=FileNotFoundError) as caught:
        second.assert_root_unchanged()
    assert str(caught.error.__cause__) == "second is missing: sub/deep"
    second.close()


def test_the_steps_of_the_opening(planted: Volume, boundary: SubstituteBoundary, pin: Pin) -> None:
    root = pin()
    boundary.calls.clear()
    child = root.open_contained_root("sub", label="child")
    steps = called(boundary)[9:]
    assert [step[0] for step in called(boundary)[:9]][0] == "open_volume"
    assert [step[0] for step in steps] == [
        "duplicate",
        "duplicate",
        "open_directory",
        "is_reparse",
        "kind",
        "close",
        "identity",
        "duplicate",
        "open_directory",
        "is_reparse",
        "kind",
        "close",
        "identity",
        "close",
    ]
    assert boundary.calls[9].args == (root._descriptor,)
    assert boundary.calls[10].args == (child._anchor_handle,)
    assert boundary.calls[11][1:] == ((boundary.calls[14].args[0], "sub"), {"create": False})
    assert boundary.calls[15].args == (child._descriptor,)
    assert boundary.calls[16].args == (child._anchor_handle,)
    child.close()


@pytest.mark.parametrize(
    "path, kind, text",
    [
        (None, TypeError, NO_TEXT),
        (b"sub", TypeError, NO_TEXT),
        (Path("sub"), TypeError, NO_TEXT),
        ("", ValueError, EXACT),
        ("/sub", ValueError, EXACT),
        ("sub\\deep", ValueError, EXACT),
        ("C:x", ValueError, EXACT),
        ("sub/../sub", ValueError, SEGMENTS),
        (".", ValueError, SEGMENTS),
    ],
)
def test_the_path_is_judged_before_the_root_is_proved(
    planted: Volume,
    boundary: SubstituteBoundary,
    pin: Pin,
    path: object,
    kind: type[Exception],
    text: str,
) -> None:
    root = pin()
    planted.replace("data", b"no directory")
    boundary.calls.clear()
    with fails_with(kind, text):
        root.open_contained_root(path, label="child")
    assert boundary.calls == []


def test_the_root_is_proved_before_it_is_found_closed(planted: Volume, pin: Pin) -> None:
    root = pin()
    root.close()
    planted.replace("data", DIRECTORY)
    with fails_with(ValueError, ROOT_CHANGED):
        root.open_contained_root("sub", label="child")


@pytest.mark.parametrize(
    "path, kind, words, cause",
    [
        ("none", FileNotFoundError, "{label} is missing: none", FileNotFoundError),
        ("sub/none/x", FileNotFoundError, "{label} is missing: sub/none/x", FileNotFoundError),
        ("file", ValueError, "{label} has a reparse or non-directory segment: file", OSError),
        ("link", ValueError, "{label} has a reparse or non-directory segment: link", OSError),
        (
            "sub/file/x",
            ValueError,
            "{label} has a reparse or non-directory segment: sub/file/x",
            OSError,
        ),
        ("junction", ValueError, f"{REPARSE_DIRECTORY}: junction", None),
        ("sub/junction/x", ValueError, f"{REPARSE_DIRECTORY}: sub/junction/x", None),
    ],
)
@pytest.mark.parametrize("label", ["what it is", ""])
def test_what_is_no_chain_of_directories_is_refused(
    planted: Volume,
    pin: Pin,
    path: str,
    kind: type[Exception],
    words: str,
    cause: type[Exception] | None,
    label: str,
) -> None:
    root = pin()
    with handles_kept(planted):
        with fails_with(kind, words.format(label=label), cause=cause) as caught:
            root.open_contained_root(path, label=label)
    if cause is OSError:
        name = path.split("/")[-2 if path.endswith("/x") else -1]
        assert str(caught.error.__cause__) == not_a_directory(name)


def test_the_message_of_a_chain_quotes_all_of_it(planted: Volume, pin: Pin) -> None:
    with pin().open_contained_root("sub", label="first") as first:
        with handles_kept(planted):
            with fails_with(
                FileNotFoundError, "second is missing: sub/none", cause=FileNotFoundError
            ):
                first.open_contained_root("none", label="second")


def test_a_pending_directory_is_missing(planted: Volume, pin: Pin) -> None:
    root = pin()
    planted.plant({"data/going": DIRECTORY})
    let_go = planted.pend("data/going")
    with fails_with(FileNotFoundError, "child is missing: going", cause=FileNotFoundError):
        root.open_contained_root("going", label="child")
    let_go()


def test_letter_case_leads_to_the_same_directory(planted: Volume, pin: Pin) -> None:
    with pin().open_contained_root("SUB/Deep", label="child") as child:
        assert child._root_identity == planted.identity_of("data/sub/deep")
        assert child._anchor_components == ("SUB", "Deep")


def test_a_child_swapped_between_its_walks_is_given_up(
    planted: Volume, boundary: SubstituteBoundary, pin: Pin
) -> None:
    root = pin()
    boundary.hook("identity", 2, after=lambda: planted.replace("data/sub", DIRECTORY))
    with handles_kept(planted), fails_with(ValueError, ROOT_CHANGED):
        root.open_contained_root("sub", label="child")
    assert boundary.unspent_hooks == []


@pytest.mark.parametrize("nth", [2, 3])
@pytest.mark.parametrize("kind", [OSError, ValueError, KeyError])
def test_a_child_without_an_identity_is_given_up(
    planted: Volume, boundary: SubstituteBoundary, pin: Pin, nth: int, kind: type[Exception]
) -> None:
    root, error = pin(), kind("mine")
    boundary.hook("identity", nth, raises=error)
    with handles_kept(planted), pytest.raises(kind) as caught:
        root.open_contained_root("sub", label="child")
    assert caught.value is error


def test_a_child_is_of_its_makers_type_and_is_not_initialised(
    planted: Volume, boundary: SubstituteBoundary
) -> None:
    class Derived(Root):  # type: ignore[misc]
        made = 0

        def __init__(self, *arguments: Any, **keywords: Any) -> None:
            Derived.made += 1
            super().__init__(*arguments, **keywords)

    with Derived("C:\\data", _boundary=boundary) as root:
        with root.open_contained_root("sub", label="child") as child:
            assert type(child) is Derived
    assert Derived.made == 1


def test_a_child_that_can_not_be_made_leaves_nothing_open(
    planted: Volume, boundary: SubstituteBoundary
) -> None:
    class Once(Root):  # type: ignore[misc]
        made = 0

        def __new__(cls, *arguments: Any, **keywords: Any) -> Any:
            Once.made += 1
            if Once.made > 1:
                raise KeyError("mine")
            return super().__new__(cls)

    root = Once("C:\\data", _boundary=boundary)
    with handles_kept(planted), fails_with(KeyError, "'mine'"):
        root.open_contained_root("sub", label="child")
    root.close()


def test_a_path_that_can_not_be_joined_leaves_nothing_open(planted: Volume, pin: Pin) -> None:
    class Joined:
        """Can be shown but not joined, whatever the way that is tried."""

        def __str__(self) -> str:
            return "C:\\data"

        def __truediv__(self, other: object) -> Any:
            raise KeyError("mine")

        def joinpath(self, *others: object) -> Any:
            raise KeyError("mine")

    root = pin()
    root.path = Joined()
    with handles_kept(planted), fails_with(KeyError, "'mine'"):
        root.open_contained_root("sub", label="child")


def test_the_label_is_a_keyword_and_required(planted: Volume, pin: Pin) -> None:
    root = pin()
    for arguments, keywords in ((("sub",), {}), (("sub", "child"), {}), ((), {"label": "child"})):
        with handles_kept(planted), pytest.raises(TypeError):
            root.open_contained_root(*arguments, **keywords)
