"""A directory goes with all that it holds, each object by its handle, and no link is passed."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import pytest

from support.failures import fails_with
from windows.planted import BAD_PATHS, CLOSED, FILES, Pin, at, files, planted, swap
from windows.volume import DIRECTORY, DIRECTORY_REPARSE, FILE_REPARSE, Volume

LABEL = "contained directory removal"
TARGET = "contained directory removal target"
UNSAFE = "contained directory is an unsafe reparse point: {}"

EITHER = pytest.mark.parametrize("missing_ok", [True, False])


@pytest.fixture
def root(volume: Volume, pin: Pin) -> Any:
    return planted(volume, pin, {"link": FILE_REPARSE, "junction": DIRECTORY_REPARSE})


def remove(root: Any, path: str = "sub", *, missing_ok: bool = True) -> bool:
    result: bool = root.remove_directory_tree(path, missing_ok=missing_ok)
    return result


@EITHER
@pytest.mark.parametrize("path", ["sub", "sub/deep", "wide", "empty", "a/b"])
def test_a_directory_goes_with_all_below_it(
    root: Any, volume: Volume, path: str, missing_ok: bool
) -> None:
    volume.plant({at("empty"): DIRECTORY, at("a/b/c/d"): b"", at("a/b/.hidden/e"): b"e"})
    volume.plant({at(f"wide/{number:03}"): b"" for number in range(40)})
    before = volume.tree("data")
    assert remove(root, path, missing_ok=missing_ok) is True
    assert volume.tree("data") == {
        place: found
        for place, found in before.items()
        if place != path and not place.startswith(f"{path}/")
    }


@pytest.mark.parametrize("path", ["absent", "sub/absent", "absent/more", "sub/absent/more"])
def test_absence_is_false_where_it_may_be(root: Any, volume: Volume, path: str) -> None:
    before = volume.tree()
    assert remove(root, path) is False
    assert volume.tree() == before


def test_absence_is_a_failure_where_it_may_not_be(root: Any) -> None:
    with fails_with(FileNotFoundError, "absent") as caught:
        remove(root, "sub/absent", missing_ok=False)
    assert caught.error.__context__ is None
    text = f"{LABEL} has a missing parent: absent/more"
    with fails_with(FileNotFoundError, text, cause=FileNotFoundError):
        remove(root, "absent/more", missing_ok=False)


@EITHER
@pytest.mark.parametrize(
    ("path", "kind", "text", "cause"),
    [
        (
            "file.bin",
            OSError,
            "[Errno 267] Windows handle-relative operation failed: file.bin",
            None,
        ),
        ("link", OSError, "[Errno 267] Windows handle-relative operation failed: link", None),
        ("junction", ValueError, UNSAFE.format("junction"), None),
        ("junction/more", ValueError, UNSAFE.format("junction/more"), None),
        (
            "file.bin/more",
            ValueError,
            f"{LABEL} has a non-directory or reparse parent: file.bin/more",
            OSError,
        ),
    ],
)
def test_what_is_no_directory_stays(
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
        remove(root, path, missing_ok=missing_ok)
    assert volume.tree() == before


@pytest.mark.parametrize(
    ("content", "text"),
    [
        (FILE_REPARSE, f"{TARGET} is an unsafe reparse point: sub/deep/odd"),
        (DIRECTORY_REPARSE, UNSAFE.format("sub/deep/odd")),
    ],
)
def test_a_link_within_stops_the_removal_and_stays(
    root: Any, volume: Volume, content: Any, text: str
) -> None:
    volume.plant({at("sub/deep/odd"): content})
    with fails_with(ValueError, text) as caught:
        remove(root)
    assert caught.error.__context__ is None
    assert volume.node(at("sub/deep/odd")).content() is content
    assert files(volume)["file.bin"] == FILES["file.bin"]


def test_a_file_that_is_judged_otherwise_than_it_was_opened(root: Any, boundary: Any) -> None:
    # Four kinds come before: of the parent, of the directory, of the proof's walk, of the file.
    boundary.hook("kind", 5, returns="directory")
    with fails_with(ValueError, f"{TARGET} must be a regular file: sub/deep/leaf.bin"):
        remove(root, "sub/deep")
    assert "delete" not in boundary.names_called()


def test_a_directory_with_something_new_in_it_is_not_deleted(
    root: Any, volume: Volume, boundary: Any
) -> None:
    boundary.hook("delete", 2, before=lambda: volume.plant({at("sub/deep/late"): b"late"}))
    text = "[Errno 145] Windows handle-relative operation failed: delete by handle"
    with fails_with(OSError, text):
        remove(root, "sub/deep")
    assert volume.read(at("sub/deep/late")) == b"late"
    assert not volume.exists(at("sub/deep/leaf.bin"))


def test_a_child_that_goes_while_it_is_listed_ends_the_removal(
    root: Any, volume: Volume, boundary: Any
) -> None:
    boundary.hook("list_names", 1, after=lambda: volume.remove(at("sub/deep/leaf.bin")))
    with fails_with(FileNotFoundError, "leaf.bin") as caught:
        remove(root, "sub/deep")
    assert caught.error.__context__ is None


def test_a_name_within_that_is_taken_again_is_told(
    root: Any, volume: Volume, boundary: Any
) -> None:
    def taken() -> None:
        volume.move(at("sub/deep/leaf.bin"), "aside")
        volume.plant({at("sub/deep/leaf.bin"): b"foreign"})

    boundary.hook("delete", 1, before=taken)
    text = f"{TARGET} leaf path changed during delete: sub/deep/leaf.bin"
    with fails_with(ValueError, text):
        remove(root, "sub/deep")
    assert volume.read(at("sub/deep/leaf.bin")) == b"foreign" and not volume.exists("aside")


@pytest.mark.parametrize("content", [b"foreign", DIRECTORY, DIRECTORY_REPARSE])
def test_the_directorys_own_name_taken_again_is_told(
    root: Any, volume: Volume, boundary: Any, content: Any
) -> None:
    def taken() -> None:
        volume.move(at("sub/deep"), "aside")
        volume.plant({at("sub/deep"): content})

    boundary.hook("delete", 2, after=taken)
    with fails_with(ValueError, f"{LABEL} leaf path changed during delete: sub/deep"):
        remove(root, "sub/deep")
    assert volume.node(at("sub/deep")).content() == content


PARENTS: dict[str, tuple[Callable[[Volume], None], type[Exception] | None]] = {
    "replaced": (lambda volume: swap(volume, at("sub")), None),
    "gone": (lambda volume: volume.move(at("sub"), at("aside")), FileNotFoundError),
    "a junction": (lambda volume: volume.make_reparse(at("sub")), ValueError),
}


@pytest.mark.parametrize("change", PARENTS)
def test_a_parent_that_changes_before_the_clearing_keeps_all(
    root: Any, volume: Volume, boundary: Any, change: str
) -> None:
    act, cause = PARENTS[change]
    boundary.hook("open_directory", 2, after=lambda: act(volume))
    text = f"{LABEL} parent or ancestor changed: sub/deep"
    with fails_with(ValueError, text, cause=cause):
        remove(root, "sub/deep")
    assert "list_names" not in boundary.names_called()


def test_a_directory_that_is_replaced_while_it_is_cleared_is_not_deleted(
    root: Any, volume: Volume, boundary: Any
) -> None:
    volume.remove(at("sub/deep/leaf.bin"))
    boundary.hook("list_names", 1, after=lambda: swap(volume, at("sub/deep")))
    with fails_with(ValueError, f"{LABEL} or ancestor changed: sub/deep"):
        remove(root, "sub/deep")
    assert volume.exists(at("sub/deep")) and volume.exists(at("sub/deep.aside"))
    assert "delete" not in boundary.names_called()


def test_a_parent_that_goes_at_the_end_is_told(root: Any, volume: Volume, boundary: Any) -> None:
    boundary.hook("delete", 2, after=lambda: volume.move(at("sub"), at("aside")))
    text = f"{LABEL} parent or ancestor changed during delete: sub/deep"
    with fails_with(ValueError, text, cause=FileNotFoundError):
        remove(root, "sub/deep")
    assert not volume.exists(at("aside/deep"))


def test_a_parent_replaced_at_the_end_is_told_by_the_last_proof(
    root: Any, volume: Volume, boundary: Any
) -> None:
    def replaced() -> None:
        volume.move(at("sub"), at("aside"))
        volume.plant({at("sub"): DIRECTORY})

    boundary.hook("delete", 2, after=replaced)
    with fails_with(ValueError, f"{LABEL} parent or ancestor changed: sub/deep"):
        remove(root, "sub/deep")


def test_what_went_before_a_failure_stays_gone(
    root: Any, volume: Volume, boundary: Any
) -> None:
    boundary.hook("delete", 3, raises=PermissionError(13, "held"))
    with fails_with(PermissionError, "[Errno 13] held"):
        remove(root)
    gone = [path for path in ("sub/deep", "sub/inner.bin", "sub") if not volume.exists(at(path))]
    assert gone == ["sub/deep"]


def test_held_files_go_and_their_holders_keep_the_bytes(root: Any, volume: Volume) -> None:
    """A name that waits for its last handle reads as missing; its directory is not yet empty."""
    held = root.open_regular_file_for_read("sub/deep/leaf.bin", label="held")
    with fails_with(OSError, None):
        remove(root)
    assert held.read() == FILES["sub/deep/leaf.bin"]
    held.close()
    assert remove(root) is True
    assert not volume.exists(at("sub"))


def test_the_root_is_not_proved(root: Any, volume: Volume) -> None:
    volume.move("data", "aside")
    assert remove(root) is True
    assert not volume.exists("aside/sub")


@pytest.mark.parametrize("case", BAD_PATHS)
def test_the_path_is_judged_before_the_root(root: Any, case: str) -> None:
    path, kind, text = BAD_PATHS[case]
    root.close()
    with fails_with(kind, text):
        root.remove_directory_tree(path, missing_ok=True)
    with fails_with(RuntimeError, CLOSED):
        remove(root)
