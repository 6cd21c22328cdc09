"""A removal deletes the very object that was proved, and proves that its name is free."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import pytest

from support.naming import named
from support.failures import fails_with
from windows.planted import BAD_PATHS, CLOSED, FILES, PATH, Pin, at, files, planted, swap
from windows.volume import DIRECTORY, DIRECTORY_REPARSE, FILE_REPARSE, Volume

LABEL = "contained removal file"
CHANGED = f"{LABEL} parent or ancestor changed: {PATH}"
LEFT = f"{LABEL} leaf path changed during delete: {PATH}"
LOST = f"{LABEL} parent or ancestor changed during delete: {PATH}"
LEAF = at(PATH)

EITHER = pytest.mark.parametrize("missing_ok", [True, False])


@pytest.fixture
def root(volume: Volume, pin: Pin) -> Any:
    return planted(volume, pin, {"link": FILE_REPARSE, "junction": DIRECTORY_REPARSE})


@EITHER
@pytest.mark.parametrize("path", FILES)
def test_a_regular_file_goes(root: Any, volume: Volume, path: str, missing_ok: bool) -> None:
    before = volume.tree()
    assert root.remove_regular_file(path, missing_ok=missing_ok) is True
    assert volume.tree() == {name: kind for name, kind in before.items() if name != at(path)}


@pytest.mark.parametrize("path", ["absent", "sub/absent", "absent/leaf", "sub/absent/leaf"])
def test_absence_is_false_where_it_may_be(root: Any, volume: Volume, path: str) -> None:
    before = volume.tree()
    assert root.remove_regular_file(path, missing_ok=True) is False
    assert volume.tree() == before


def test_absence_is_a_failure_where_it_may_not_be(root: Any) -> None:
    with fails_with(FileNotFoundError, "absent") as caught:
        root.remove_regular_file("sub/absent", missing_ok=False)
    assert caught.error.__context__ is None
    text = f"{LABEL} has a missing parent: absent/leaf"
    with fails_with(FileNotFoundError, text, cause=FileNotFoundError):
        root.remove_regular_file("absent/leaf", missing_ok=False)


@EITHER
@pytest.mark.parametrize(
    ("path", "kind", "text", "cause"),
    [
        ("link", ValueError, f"{LABEL} is an unsafe reparse point: link", None),
        ("sub", OSError, "[Errno 5] Windows handle-relative operation failed: sub", None),
        ("junction", OSError, "[Errno 5] Windows handle-relative operation failed: junction", None),
        (
            "file.bin/leaf",
            ValueError,
            f"{LABEL} has a non-directory or reparse parent: file.bin/leaf",
            OSError,
        ),
        (
            "junction/leaf",
            ValueError,
            "contained directory is an unsafe reparse point: junction/leaf",
            None,
        ),
    ],
)
def test_what_is_no_regular_file_stays(
    root: Any,
    volume: Volume,
    path: str,
    kind: type[Exception],
    text: str,
    cause: type[Exception] | None,
    missing_ok: bool,
) -> None:
    before = volume.tree()
    with fails_with(kind, text, cause=cause):
        root.remove_regular_file(path, missing_ok=missing_ok)
    assert volume.tree() == before


def test_what_opens_as_a_directory_is_no_regular_file(root: Any, boundary: Any) -> None:
    boundary.hook("kind", 2, returns="directory")
    with fails_with(ValueError, f"{LABEL} must be a regular file: {PATH}"):
        root.remove_regular_file(PATH, missing_ok=True)
    assert "delete" not in boundary.names_called()


@EITHER
def test_a_leaf_under_deletion_counts_as_missing(
    root: Any, volume: Volume, missing_ok: bool
) -> None:
    let_go = volume.pend(LEAF)
    if missing_ok:
        assert root.remove_regular_file(PATH, missing_ok=True) is False
    else:
        with fails_with(FileNotFoundError, "inner.bin"):
            root.remove_regular_file(PATH, missing_ok=False)
    let_go()


@EITHER
def test_a_leaf_that_another_party_deletes_and_holds_is_gone_all_the_same(
    root: Any, volume: Volume, boundary: Any, missing_ok: bool
) -> None:
    """The name reads as missing until the last handle closes, which is what was to be shown."""
    held: list[Callable[[], None]] = []
    boundary.hook("open_regular", 1, after=lambda: held.append(volume.pend(LEAF)))
    assert root.remove_regular_file(PATH, missing_ok=missing_ok) is True
    assert not volume.exists(LEAF)
    held[0]()


def test_the_object_that_was_proved_is_the_one_that_goes(
    root: Any, volume: Volume, boundary: Any
) -> None:
    def swapped() -> None:
        volume.move(LEAF, at("aside"))
        volume.plant({LEAF: b"foreign"})

    boundary.hook("delete", 1, before=swapped)
    with fails_with(ValueError, LEFT):
        root.remove_regular_file(PATH, missing_ok=True)
    assert files(volume)[PATH] == b"foreign"
    assert "aside" not in files(volume)


@pytest.mark.parametrize("content", [b"foreign", DIRECTORY, FILE_REPARSE, DIRECTORY_REPARSE])
def test_a_name_that_is_taken_again_is_told(
    root: Any, volume: Volume, boundary: Any, content: Any
) -> None:
    def taken() -> None:
        volume.plant({LEAF: content})

    boundary.hook("open_entry", 1, before=taken)
    with fails_with(ValueError, LEFT) as caught:
        root.remove_regular_file(PATH, missing_ok=True)
    assert caught.error.__context__ is None
    assert volume.node(LEAF).content() == content


PARENTS: dict[str, tuple[Callable[[Volume], None], type[Exception] | None]] = {
    "replaced": (lambda volume: swap(volume, "data/sub"), None),
    "gone": (lambda volume: volume.move("data/sub", "data/aside"), FileNotFoundError),
    "a junction": (lambda volume: volume.make_reparse("data/sub"), ValueError),
}


@pytest.mark.parametrize("change", PARENTS)
def test_a_parent_that_changes_before_the_deletion_keeps_the_file(
    root: Any, volume: Volume, boundary: Any, change: str
) -> None:
    act, cause = PARENTS[change]
    boundary.hook("open_regular", 1, after=lambda: act(volume))
    with fails_with(ValueError, CHANGED, cause=cause):
        root.remove_regular_file(PATH, missing_ok=True)
    assert "delete" not in boundary.names_called()


def test_a_parent_that_goes_after_the_deletion(root: Any, volume: Volume, boundary: Any) -> None:
    boundary.hook("delete", 1, after=lambda: volume.move("data/sub", "data/aside"))
    with fails_with(ValueError, LOST, cause=FileNotFoundError):
        root.remove_regular_file(PATH, missing_ok=True)
    assert not volume.exists("data/aside/inner.bin")


def test_a_parent_that_is_replaced_after_the_deletion(
    root: Any, volume: Volume, boundary: Any
) -> None:
    """A new parent in which the name is free passes the look at the leaf, not the last proof."""

    def replaced() -> None:
        volume.move("data/sub", "data/aside")
        volume.plant({"data/sub": DIRECTORY})

    boundary.hook("delete", 1, after=replaced)
    with fails_with(ValueError, CHANGED):
        root.remove_regular_file(PATH, missing_ok=True)


def test_the_object_is_closed_before_its_name_is_looked_for(root: Any, boundary: Any) -> None:
    root.remove_regular_file("file.bin", missing_ok=False)
    calls = boundary.calls
    at_delete = boundary.names_called().index("delete")
    assert calls[at_delete + 1].name == "close"
    assert calls[at_delete + 1].args == calls[at_delete].args


def test_the_root_is_not_proved(root: Any, volume: Volume) -> None:
    swap(volume, "data")
    assert root.remove_regular_file("file.bin", missing_ok=False) is True
    assert not volume.exists("data.aside/file.bin") and volume.exists("data/file.bin")


@pytest.mark.parametrize("case", BAD_PATHS)
def test_the_path_is_judged_before_the_root(root: Any, case: str) -> None:
    path, kind, text = BAD_PATHS[case]
    root.close()
    with fails_with(kind, text):
        root.remove_regular_file(path, missing_ok=True)
    with fails_with(RuntimeError, CLOSED):
        root.remove_regular_file(PATH, missing_ok=True)


@pytest.mark.parametrize("given", [1, "yes", 0, "", None], ids=named)
def test_the_flag_is_read_for_its_truth(root: Any, given: object) -> None:
    if given:
        assert root.remove_regular_file("absent", missing_ok=given) is False
    else:
        with fails_with(FileNotFoundError, "absent"):
            root.remove_regular_file("absent", missing_ok=given)


def test_the_flag_has_to_be_given_by_name(root: Any) -> None:
    for arguments in [(PATH,), (PATH, True)]:
        with pytest.raises(TypeError):
            root.remove_regular_file(*arguments)
