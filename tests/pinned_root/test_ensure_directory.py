"""A contained directory path is made as far as it is missing, and every segment is proved."""

from __future__ import annotations

import errno
import os
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.children import drop_rights, run_in_child
from pinned_root.disk import move_away
from pinned_root.hostile import Own
from pinned_root.moves import noting_class
from pinned_root.recording import Call
from pinned_root.trees import DIRECTORY, FIFO, SOCKET, contents, link_to, plant
from support.descriptors import descriptors_kept
from support.failures import fails_with

UNSAFE = "contained directory has a symlink or non-directory segment: {}"
EXACT = "manifest relative path must be an exact relative POSIX path"


@pytest.mark.parametrize(
    ("path", "made"),
    [
        ("new", ["new"]),
        ("new/newer/newest", ["new", "new/newer", "new/newer/newest"]),
        ("sub/new", ["sub/new"]),
        ("sub/deep/.hidden/x", ["sub/deep/.hidden", "sub/deep/.hidden/x"]),
        ("sub", []),
        ("sub/deep", []),
    ],
)
def test_missing_segments_are_made_and_the_rest_stays(
    root: Any, tree: Path, path: str, made: list[str]
) -> None:
    before = contents(tree)
    with descriptors_kept():
        assert root.ensure_directory(path) is None
        root.ensure_directory(path)
    assert contents(tree) == {**before, **dict.fromkeys(made, DIRECTORY)}


@pytest.mark.parametrize(("mask", "mode"), [(0, 0o755), (0o022, 0o755), (0o077, 0o700)])
def test_new_directories_have_the_fixed_mode_less_the_mask(
    root: PinnedRoot, tree: Path, mask: int, mode: int
) -> None:
    previous = os.umask(mask)
    try:
        root.ensure_directory("new/newer")
    finally:
        os.umask(previous)
    assert {(tree / path).stat().st_mode & 0o7777 for path in ("new", "new/newer")} == {mode}


def test_a_directory_that_exists_is_not_touched(root: PinnedRoot, tree: Path) -> None:
    (tree / "sub").chmod(0o700)
    before = (tree / "sub" / "deep").stat(), (tree / "sub").stat()
    root.ensure_directory("sub/deep")
    after = (tree / "sub" / "deep").stat(), (tree / "sub").stat()
    assert [(one.st_ino, one.st_mode, one.st_mtime_ns) for one in after] == [
        (one.st_ino, one.st_mode, one.st_mtime_ns) for one in before
    ]


REFUSED: dict[str, tuple[str, type[OSError]]] = {
    "file": ("file.bin", NotADirectoryError),
    "file deeper": ("sub/inner.bin", NotADirectoryError),
    "file as parent": ("file.bin/new", NotADirectoryError),
    "link to a directory": ("linked", NotADirectoryError),
    "link as parent": ("linked/deep/new", NotADirectoryError),
    "link outside": ("outside/new", NotADirectoryError),
    "dangling link": ("dangling", NotADirectoryError),
    "dangling link as parent": ("dangling/new", NotADirectoryError),
    "fifo": ("fifo", NotADirectoryError),
    "socket": ("sub/socket", NotADirectoryError),
}


@pytest.mark.parametrize("case", REFUSED)
def test_a_segment_that_is_no_real_directory_is_refused(
    root: PinnedRoot, tree: Path, case: str
) -> None:
    plant(
        tree,
        {
            "linked": link_to("sub"),
            "outside": link_to("../outside"),
            "dangling": link_to("nowhere"),
            "fifo": FIFO,
            "sub/socket": SOCKET,
        },
    )
    plant(tree.parent, {"outside": DIRECTORY})
    path, cause = REFUSED[case]
    before = contents(tree)
    with descriptors_kept(), fails_with(ValueError, UNSAFE.format(path), cause=cause):
        root.ensure_directory(path)
    assert contents(tree) == before
    assert contents(tree.parent / "outside") == {}


def test_the_cause_names_the_segment_alone(root: PinnedRoot) -> None:
    text = UNSAFE.format("sub/inner.bin/new/newer")
    with fails_with(ValueError, text, cause=NotADirectoryError) as caught:
        root.ensure_directory("sub/inner.bin/new/newer")
    assert isinstance(caught.error.__cause__, OSError)
    assert caught.error.__cause__.filename == "inner.bin"


def test_directories_that_were_made_stay_when_a_later_segment_fails(
    root: PinnedRoot, tree: Path
) -> None:
    path = f"new/newer/{'n' * 256}/x"
    with descriptors_kept(), fails_with(OSError, None) as caught:
        root.ensure_directory(path)
    assert isinstance(caught.error, OSError)
    assert (caught.error.errno, caught.error.filename) == (errno.ENAMETOOLONG, "n" * 256)
    assert caught.error.__context__ is None
    assert (tree / "new" / "newer").is_dir()


def test_a_directory_that_may_not_be_opened_is_unsafe_and_one_that_cannot_be_made_is_not(
    root: PinnedRoot, tree: Path
) -> None:
    (tree / "closed").mkdir(mode=0)
    (tree / "fixed").mkdir(mode=0o555)

    def refused() -> None:
        drop_rights()
        with descriptors_kept():
            with fails_with(ValueError, UNSAFE.format("closed"), cause=PermissionError):
                root.ensure_directory("closed")
            with fails_with(ValueError, UNSAFE.format("closed/x"), cause=PermissionError):
                root.ensure_directory("closed/x")
            with fails_with(PermissionError, "[Errno 13] Permission denied: 'x'") as caught:
                root.ensure_directory("fixed/x")
            assert caught.error.__context__ is None

    try:
        run_in_child(refused)
    finally:
        (tree / "closed").chmod(0o755)


@pytest.mark.parametrize(
    ("path", "kind", "text"),
    [
        (None, TypeError, "manifest relative path must be a string"),
        (b"new", TypeError, "manifest relative path must be a string"),
        ("", ValueError, EXACT),
        ("new/", ValueError, EXACT),
        ("/new", ValueError, EXACT),
        (
            "new/../x",
            ValueError,
            "manifest relative path must not contain empty, dot, or parent segments",
        ),
    ],
)
def test_the_path_is_judged_before_the_root(
    root: PinnedRoot, tree: Path, path: Any, kind: type[Exception], text: str
) -> None:
    before = contents(tree)
    with fails_with(kind, text):
        root.ensure_directory(path)
    root.close()
    with fails_with(kind, text):
        root.ensure_directory(path)
    assert contents(tree) == before


def test_a_closed_root_is_refused_before_the_disk(root: PinnedRoot, tree: Path) -> None:
    root.close()
    for path in ("new", "file.bin"):
        with fails_with(RuntimeError, "pinned root is closed"):
            root.ensure_directory(path)
    assert not (tree / "new").exists()


def test_the_pin_is_asked_for_through_the_instance_and_no_walk_is(tree: Path) -> None:
    with noting_class()(tree) as root:
        root.calls.clear()
        root.ensure_directory("new/newer")
        assert root.calls == [Call("_require_descriptor", (), {})]


def test_a_failing_pin_passes_its_failure(root: Any) -> None:
    def refuse() -> int:
        raise Own("mine")

    root._require_descriptor = refuse
    with descriptors_kept(), fails_with(Own, "mine"):
        root.ensure_directory("new")


def test_the_path_rule_is_asked_and_its_result_is_made(
    root: PinnedRoot, tree: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(client_manifest, "validate_manifest_relative_path", lambda path: "sub/made")
    root.ensure_directory("an alias")
    assert (tree / "sub" / "made").is_dir() and not (tree / "an alias").exists()


def test_the_root_is_not_proved(root: PinnedRoot, tree: Path) -> None:
    aside = move_away(tree)
    root.ensure_directory("new")
    assert (aside / "new").is_dir() and not tree.exists()


@pytest.mark.parametrize("name", ["\udcff\udcfe", "é", "a\nb", "a b", "*", "-p", "~"])
def test_names_have_no_other_meaning(root: PinnedRoot, tree: Path, name: str) -> None:
    root.ensure_directory(f"{name}/{name}")
    assert (tree / name / name).is_dir()
    plant(tree, {f"{name}/file": b""})
    with fails_with(ValueError, UNSAFE.format(f"{name}/file"), cause=NotADirectoryError):
        root.ensure_directory(f"{name}/file")


@pytest.mark.parametrize("path", ["\ud800", "new/\ud800", "sub/\udfff/x"])
def test_a_surrogate_that_no_name_can_hold_fails_as_the_host_does(
    root: PinnedRoot, path: str
) -> None:
    with descriptors_kept(), fails_with(UnicodeEncodeError, None) as caught:
        root.ensure_directory(path)
    assert caught.error.__context__ is None
