"""The walk from an anchor descriptor: it borrows the anchor and gives a descriptor of its own."""

from __future__ import annotations

import os
from collections.abc import Callable, Iterator
from pathlib import Path

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from support.descriptors import descriptors_kept
from support.failures import fails_with

walk: Callable[..., int] = PinnedRoot._open_directory_components


@pytest.fixture
def anchor(tree: Path) -> Iterator[int]:
    descriptor = os.open(tree, os.O_RDONLY | os.O_DIRECTORY)
    yield descriptor
    os.close(descriptor)


@pytest.mark.parametrize("components", [(), ("sub",), ("sub", "deep")])
def test_the_walk_ends_at_a_fresh_descriptor(
    anchor: int, tree: Path, components: tuple[str, ...]
) -> None:
    with descriptors_kept(left_open=1):
        descriptor = walk(anchor, components, label="dir")
    assert descriptor != anchor
    assert not os.get_inheritable(descriptor)
    assert os.path.samestat(os.fstat(descriptor), tree.joinpath(*components).stat())
    os.close(descriptor)
    os.fstat(anchor)


def test_the_walk_needs_no_instance_and_takes_its_values_by_name(anchor: int) -> None:
    os.close(walk(anchor_descriptor=anchor, components=("sub",), label="dir"))
    with pytest.raises(TypeError):
        walk(anchor, ("sub",))
    with pytest.raises(TypeError):
        walk(anchor, ("sub",), "dir")


@pytest.mark.parametrize(
    ("components", "kind", "text"),
    [
        (("absent",), FileNotFoundError, "dir is missing: absent"),
        (("sub", "absent", "x"), FileNotFoundError, "dir is missing: sub/absent/x"),
        (("file.bin", "x"), ValueError, "dir has a symlink or non-directory segment: file.bin/x"),
        (("sub", "link"), ValueError, "dir has a symlink or non-directory segment: sub/link"),
        (("n" * 256,), ValueError, f"dir has a symlink or non-directory segment: {'n' * 256}"),
    ],
)
def test_a_failed_segment_is_reported_with_all_segments(
    anchor: int, tree: Path, components: tuple[str, ...], kind: type[Exception], text: str
) -> None:
    (tree / "sub" / "link").symlink_to("deep")
    with descriptors_kept():
        try:
            walk(anchor, components, label="dir")
        except OSError as error:
            assert (type(error), str(error)) == (kind, text)
            assert type(error.__cause__) is FileNotFoundError
        except ValueError as error:
            assert (type(error), str(error)) == (kind, text)
            assert isinstance(error.__cause__, OSError)
            assert error.__cause__.filename in components
        else:
            raise AssertionError("the walk did not fail")


def test_a_bad_anchor_passes_as_the_host_raised_it() -> None:
    with fails_with(OSError, "[Errno 9] Bad file descriptor") as caught:
        walk(2**31 - 1, ("sub",), label="dir")
    assert caught.error.__context__ is None


def test_an_anchor_that_is_a_file_fails_at_its_first_segment(tree: Path) -> None:
    text = "dir has a symlink or non-directory segment: sub/deep"
    with (tree / "file.bin").open("rb") as file, descriptors_kept():
        with fails_with(ValueError, text, cause=NotADirectoryError):
            walk(file.fileno(), ("sub", "deep"), label="dir")


def test_a_label_that_fails_to_be_formatted_leaves_nothing_open(anchor: int) -> None:
    class Unprintable:
        def __format__(self, spec: str) -> str:
            raise KeyError("label")

    with descriptors_kept(), fails_with(KeyError, "'label'") as caught:
        walk(anchor, ("absent",), label=Unprintable())
    assert isinstance(caught.error.__context__, FileNotFoundError)
