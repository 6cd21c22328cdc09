"""What another party swaps between the proofs of a move is caught, or is harmless."""

from __future__ import annotations

import errno
import os
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.disk import (
    make_socket,
    move_away,
    replace_by_rename,
    swap_for_copy,
    swap_for_link,
    touch,
)
from pinned_root.moves import MOVES
from pinned_root.trees import contents
from support.descriptors import descriptors_kept
from support.failures import fails_with

SOURCE = "sub/inner.bin"
CANARY = b"canary bytes"

EACH = pytest.mark.parametrize("word", MOVES)
TARGETS = pytest.mark.parametrize("target", ["fresh", "sub/deep/leaf.bin"])


def swapping(tree: Path, step: str, change: Callable[[], object]) -> Any:
    """A root that runs `change` after the walk to one side, or when the leaf has been judged."""

    class Swapping(PinnedRoot):
        def _open_parent(self, *args: Any, label: str, create: bool) -> Any:
            found = super()._open_parent(*args, label=label, create=create)
            if label.endswith(step):
                change()
            return found

        @staticmethod
        def _assert_replaceable_leaf(*args: Any, **keywords: Any) -> None:
            PinnedRoot._assert_replaceable_leaf(*args, **keywords)
            if step == "judged":
                change()

    return Swapping(tree)


def canary(tree: Path) -> Path:
    """A file outside the root, which no move may ever touch."""
    place = tree.parent / "canary"
    place.write_bytes(CANARY)
    return place


def another_file(tree: Path) -> None:
    (tree / SOURCE).rename(tree / "aside")
    (tree / SOURCE).write_bytes(b"foreign")


def link_outside(tree: Path) -> None:
    (tree / SOURCE).rename(tree / "aside")
    (tree / SOURCE).symlink_to(canary(tree))


def dangling_link(tree: Path) -> None:
    (tree / SOURCE).unlink()
    (tree / SOURCE).symlink_to("nowhere")


def fifo(tree: Path) -> None:
    (tree / SOURCE).unlink()
    os.mkfifo(tree / SOURCE)


def bound_socket(tree: Path) -> None:
    (tree / SOURCE).unlink()
    make_socket(tree / SOURCE)


def linked_canary(tree: Path) -> None:
    (tree / SOURCE).unlink()
    os.link(canary(tree), tree / SOURCE)


FOREIGN: dict[str, Callable[[Path], None]] = {
    "another file": another_file,
    "the same bytes in another file": lambda tree: replace_by_rename(tree / SOURCE),
    "a hard link to another file": linked_canary,
    "a link": link_outside,
    "a dangling link": dangling_link,
    "a fifo": fifo,
    "a socket": bound_socket,
}


@EACH
@TARGETS
@pytest.mark.parametrize("step", ["destination", "judged"])
@pytest.mark.parametrize("change", FOREIGN)
def test_a_source_that_was_swapped_is_published_and_taken_away_again(
    tree: Path, word: str, change: str, step: str, target: str
) -> None:
    root = swapping(tree, step, lambda: FOREIGN[change](tree))
    text = f"contained {word} source changed before publish: {SOURCE}"
    with descriptors_kept(), fails_with(ValueError, text) as caught:
        MOVES[word](root, SOURCE, target)
    root.close()
    assert caught.error.__context__ is None
    assert not os.path.lexists(tree / target)
    assert not os.path.lexists(tree / SOURCE)
    outside = tree.parent / "canary"
    assert not outside.exists() or outside.read_bytes() == CANARY


@EACH
def test_the_file_that_was_proved_is_left_where_it_was_put(tree: Path, word: str) -> None:
    root = swapping(tree, "judged", lambda: another_file(tree))
    with fails_with(ValueError, None):
        MOVES[word](root, SOURCE, "fresh")
    root.close()
    assert (tree / "aside").read_bytes() == b"inner bytes"


def relinked(tree: Path) -> None:
    """The very same file comes back under its name by way of another."""
    os.link(tree / SOURCE, tree / "aside")
    (tree / SOURCE).unlink()
    (tree / "aside").rename(tree / SOURCE)


HARMLESS: dict[str, Callable[[Path], object]] = {
    "touched": lambda tree: touch(tree / SOURCE),
    "rewritten": lambda tree: (tree / SOURCE).write_bytes(b"rewritten in place"),
    "another mode": lambda tree: (tree / SOURCE).chmod(0),
    "the same file again": relinked,
    "parent moved": lambda tree: move_away(tree / "sub"),
    "parent linked": lambda tree: swap_for_link(tree / "sub"),
    "parent copied": lambda tree: swap_for_copy(tree / "sub"),
    "root moved": move_away,
}


@EACH
@pytest.mark.parametrize("change", HARMLESS)
def test_only_the_identity_of_the_file_counts(tree: Path, word: str, change: str) -> None:
    inode = (tree / SOURCE).stat().st_ino
    root = swapping(tree, "judged", lambda: HARMLESS[change](tree))
    with descriptors_kept():
        assert MOVES[word](root, SOURCE, "fresh") is None
    assert os.stat("fresh", dir_fd=root._descriptor).st_ino == inode
    root.close()


@EACH
def test_a_source_that_has_gone_before_the_rename_is_the_hosts_failure(
    tree: Path, word: str
) -> None:
    root = swapping(tree, "judged", lambda: (tree / SOURCE).unlink())
    with descriptors_kept(), fails_with(FileNotFoundError, None) as caught:
        MOVES[word](root, SOURCE, "file.bin")
    root.close()
    assert isinstance(caught.error, OSError) and caught.error.errno == errno.ENOENT
    assert (tree / "file.bin").read_bytes() == b"outer bytes"


@EACH
def test_a_source_swapped_for_a_directory_cannot_be_taken_away_again(
    tree: Path, word: str
) -> None:
    def change() -> None:
        (tree / SOURCE).unlink()
        (tree / SOURCE).mkdir()

    root = swapping(tree, "judged", change)
    with descriptors_kept(), fails_with(IsADirectoryError, None) as caught:
        MOVES[word](root, SOURCE, "fresh")
    root.close()
    assert caught.error.__context__ is None
    assert (tree / "fresh").is_dir()


@EACH
@pytest.mark.parametrize(
    ("change", "kind", "text"),
    [
        (link_outside, OSError, "[Errno 40] Too many levels of symbolic links: 'inner.bin'"),
        (fifo, ValueError, "contained {} source must be regular: sub/inner.bin"),
        (bound_socket, OSError, "[Errno 6] No such device or address: 'inner.bin'"),
    ],
)
def test_a_source_swapped_before_it_is_opened_is_refused_in_place(
    tree: Path, word: str, change: Callable[[Path], None], kind: type[Exception], text: str
) -> None:
    root = swapping(tree, "source", lambda: change(tree))
    with descriptors_kept(), fails_with(kind, text.format(word)):
        MOVES[word](root, SOURCE, "file.bin")
    root.close()
    assert os.path.lexists(tree / SOURCE)
    assert (tree / "file.bin").read_bytes() == b"outer bytes"


@EACH
def test_a_file_that_took_the_place_before_the_open_is_the_one_that_moves(
    tree: Path, word: str
) -> None:
    root = swapping(tree, "source", lambda: another_file(tree))
    assert MOVES[word](root, SOURCE, "fresh") is None
    root.close()
    assert (tree / "fresh").read_bytes() == b"foreign"


@EACH
def test_a_destination_that_became_a_link_is_replaced_and_not_followed(
    tree: Path, word: str
) -> None:
    outside = canary(tree)
    root = swapping(tree, "judged", lambda: (tree / "fresh").symlink_to(outside))
    assert MOVES[word](root, SOURCE, "fresh") is None
    root.close()
    assert not (tree / "fresh").is_symlink()
    assert (tree / "fresh").read_bytes() == b"inner bytes"
    assert outside.read_bytes() == CANARY


@EACH
def test_a_destination_that_became_a_directory_is_the_hosts_failure(
    tree: Path, word: str
) -> None:
    root = swapping(tree, "judged", lambda: (tree / "fresh").mkdir())
    with descriptors_kept(), fails_with(IsADirectoryError, None):
        MOVES[word](root, SOURCE, "fresh")
    root.close()
    assert (tree / SOURCE).read_bytes() == b"inner bytes"


@EACH
@pytest.mark.parametrize("step", ["destination", "judged"])
def test_a_destination_whose_parent_was_linked_elsewhere_stays_beneath_the_root(
    tree: Path, word: str, step: str
) -> None:
    outside = tree.parent / "outside"
    outside.mkdir()

    def change() -> None:
        (tree / "sub" / "deep").rename(tree / "moved")
        (tree / "sub" / "deep").symlink_to(outside)

    root = swapping(tree, step, change)
    assert MOVES[word](root, "file.bin", "sub/deep/fresh") is None
    root.close()
    assert contents(outside) == {}
    assert (tree / "moved" / "fresh").read_bytes() == b"outer bytes"
