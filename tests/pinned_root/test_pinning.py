"""Pinning walks the absolute path segment by segment, and follows no link on the way."""

from __future__ import annotations

import errno
import os
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.disk import make_socket
from support.descriptors import descriptors_kept
from support.failures import fails_with

UNSAFE = "pinned root is missing, has a symlinked ancestor, or is not a safe directory"


def same_directory(descriptor: int, path: str | Path) -> bool:
    return os.path.samestat(os.fstat(descriptor), os.stat(path))


def test_a_root_holds_exactly_the_five_attributes(tree: Path) -> None:
    root = PinnedRoot(tree)
    held = dict(vars(root))
    descriptor = held.pop("_descriptor")
    assert held == {
        "path": tree,
        "_anchor_descriptor": None,
        "_anchor_components": (),
        "_contained_root_label": None,
    }
    assert type(descriptor) is int and same_directory(descriptor, tree)
    assert type(held["path"]) is type(Path())
    root.close()


def test_the_pin_is_one_descriptor_that_a_child_program_does_not_inherit(tree: Path) -> None:
    with descriptors_kept(left_open=1):
        root = PinnedRoot(tree)
    assert os.get_inheritable(root._descriptor) is False  # type: ignore[arg-type]
    root.close()


def test_attributes_are_set_in_a_fixed_order_before_the_walk(tree: Path) -> None:
    order: list[str] = []

    class Noting(PinnedRoot):
        def __setattr__(self, name: str, value: object) -> None:
            order.append(name)
            super().__setattr__(name, value)

    Noting(tree).close()
    assert order[:5] == [
        "path",
        "_anchor_descriptor",
        "_anchor_components",
        "_contained_root_label",
        "_descriptor",
    ]


def test_the_class_has_no_bases_and_two_names() -> None:
    assert client_manifest._PosixPinnedRoot is PinnedRoot
    assert PinnedRoot.__bases__ == (object,)
    assert PinnedRoot.__name__ == "PinnedRoot"
    assert PinnedRoot.__doc__ == (
        "Pin one real non-symlink directory for descriptor-relative local I/O."
    )


def test_the_file_system_root_itself_can_be_pinned() -> None:
    with PinnedRoot("/") as root:
        assert root.path == Path("/")
        assert same_directory(root._descriptor, "/")  # type: ignore[arg-type]


@pytest.mark.parametrize("spelling", ["{}", "{}/", "/{}", "{}//", "{}/sub/..", "{}/./", "/.{}"])
def test_spellings_of_one_path_pin_one_directory(tree: Path, spelling: str) -> None:
    text = spelling.format(tree)
    with PinnedRoot(text) as root:
        assert root.path == Path(os.path.abspath(text))
        assert same_directory(root._descriptor, tree)  # type: ignore[arg-type]


def test_parent_segments_are_collapsed_before_the_walk(tree: Path) -> None:
    (tree / "link").symlink_to("/nowhere/at/all")
    with PinnedRoot(f"{tree}/link/../sub") as root:
        assert root.path == tree / "sub"
    with PinnedRoot(f"{tree}/not-there/../sub") as root:
        assert root.path == tree / "sub"


def test_a_relative_root_belongs_to_the_directory_of_its_pinning(
    tree: Path, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.chdir(tree)
    with PinnedRoot("sub") as root:
        assert root.path == tree / "sub"
        monkeypatch.chdir(tmp_path)
        root.assert_root_unchanged()
        assert root.read_regular_file("inner.bin", label="file") == b"inner bytes"


def test_the_empty_text_is_the_working_directory(
    tree: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.chdir(tree)
    with PinnedRoot("") as root:
        assert root.path == tree


def test_a_relative_root_fails_as_the_host_does_without_a_working_directory(
    tree: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    gone = tree / "gone"
    gone.mkdir()
    monkeypatch.chdir(gone)
    gone.rmdir()
    with fails_with(FileNotFoundError, None) as caught:
        PinnedRoot("sub")
    assert isinstance(caught.error, OSError) and caught.error.errno == errno.ENOENT
    with PinnedRoot(tree) as root:
        assert root.path == tree


def test_any_path_like_value_will_do(tree: Path) -> None:
    class Place:
        def __fspath__(self) -> str:
            return str(tree)

    for value in (tree, str(tree), Place()):
        with PinnedRoot(value) as root:
            assert root.path == tree


@pytest.mark.parametrize("missing", ["absent", "absent/below", "sub/absent"])
def test_a_missing_root_keeps_the_words_of_the_operating_system(
    tree: Path, missing: str
) -> None:
    text = "[Errno 2] No such file or directory: 'absent'"
    with descriptors_kept(), fails_with(FileNotFoundError, text) as caught:
        PinnedRoot(tree / missing)
    assert isinstance(caught.error, OSError)
    assert (caught.error.errno, caught.error.filename) == (errno.ENOENT, "absent")
    assert caught.error.__context__ is None


@pytest.mark.parametrize("dangling", [False, True])
@pytest.mark.parametrize("below", ["", "/deep"])
@pytest.mark.parametrize("create", [False, True])
def test_a_symlink_at_any_segment_is_refused(
    tree: Path, dangling: bool, below: str, create: bool
) -> None:
    (tree / "link").symlink_to(tree / ("nowhere" if dangling else "sub"))
    with descriptors_kept(), fails_with(ValueError, UNSAFE, cause=NotADirectoryError):
        PinnedRoot(f"{tree}/link{below}", create=create)
    assert not (tree / "nowhere").exists()


@pytest.mark.parametrize("below", ["", "/deep"])
@pytest.mark.parametrize("create", [False, True])
def test_a_regular_file_at_any_segment_is_refused(tree: Path, below: str, create: bool) -> None:
    with descriptors_kept(), fails_with(ValueError, UNSAFE, cause=NotADirectoryError) as caught:
        PinnedRoot(f"{tree}/file.bin{below}", create=create)
    cause = caught.error.__cause__
    assert isinstance(cause, OSError) and cause.filename == "file.bin"


def test_a_fifo_or_a_socket_as_root_is_refused_without_waiting(tree: Path) -> None:
    os.mkfifo(tree / "fifo")
    make_socket(tree / "socket")
    for name in ("fifo", "socket"):
        with fails_with(ValueError, UNSAFE, cause=NotADirectoryError):
            PinnedRoot(tree / name)


def test_a_symlink_that_is_pinned_by_its_target_is_a_root_like_any_other(tree: Path) -> None:
    (tree / "link").symlink_to("sub")
    with PinnedRoot((tree / "link").resolve()) as root:
        assert root.path == tree / "sub"


def test_a_name_that_is_too_long_is_an_unsafe_root(tree: Path) -> None:
    with descriptors_kept(), fails_with(ValueError, UNSAFE, cause=OSError) as caught:
        PinnedRoot(tree / ("n" * 256))
    cause = caught.error.__cause__
    assert isinstance(cause, OSError) and cause.errno == errno.ENAMETOOLONG


def test_a_name_that_is_no_utf8_is_pinned_and_named_in_failures(tree: Path) -> None:
    raw = os.fsencode(tree) + b"/\xff\xfe"
    os.mkdir(raw)
    with PinnedRoot(os.fsdecode(raw)) as root:
        assert root.path.name == "\udcff\udcfe"
    with fails_with(FileNotFoundError, None) as caught:
        PinnedRoot(os.fsdecode(raw + b"\xfd"))
    assert isinstance(caught.error, OSError)
    assert caught.error.filename == "\udcff\udcfe\udcfd"


def test_create_is_a_keyword_only_and_root_is_required(tree: Path) -> None:
    with pytest.raises(TypeError), descriptors_kept():
        PinnedRoot(tree, True)  # type: ignore[call-arg]
    with pytest.raises(TypeError), descriptors_kept():
        PinnedRoot()  # type: ignore[call-arg]
    with pytest.raises(TypeError), descriptors_kept():
        PinnedRoot(tree, label="none")  # type: ignore[call-arg]


def test_root_may_be_given_by_keyword(tree: Path) -> None:
    PinnedRoot(root=tree, create=False).close()


def test_the_absolute_walk_is_a_class_method_that_hands_over_its_descriptor(tree: Path) -> None:
    with descriptors_kept(left_open=1):
        descriptor = PinnedRoot._open_absolute_directory(tree, create=False)
    assert same_directory(descriptor, tree)
    assert os.get_inheritable(descriptor) is False
    os.close(descriptor)
    with pytest.raises(TypeError):
        PinnedRoot._open_absolute_directory(tree)  # type: ignore[call-arg]
    with pytest.raises(TypeError):
        PinnedRoot._open_absolute_directory(tree, False)  # type: ignore[call-arg]


REFUSED = "secure descriptor-relative SDK filesystem I/O requires POSIX O_NOFOLLOW support"


@pytest.mark.parametrize("root", ["/", None, "a\0b"])
def test_a_host_without_posix_refuses_before_anything_else(
    monkeypatch: pytest.MonkeyPatch, root: Any
) -> None:
    with monkeypatch.context() as patch, descriptors_kept():
        patch.setattr(os, "name", "nt")
        with fails_with(NotImplementedError, REFUSED) as caught:
            PinnedRoot(root)
    assert caught.error.__context__ is None


def test_a_host_that_cannot_refuse_links_refuses_to_pin(
    monkeypatch: pytest.MonkeyPatch,
) -> None:
    with monkeypatch.context() as patch, descriptors_kept():
        patch.delattr(os, "O_NOFOLLOW")
        with fails_with(NotImplementedError, REFUSED) as caught:
            PinnedRoot("/")
    assert caught.error.__context__ is None
    PinnedRoot("/").close()
