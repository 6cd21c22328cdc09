"""Both moves refuse in fixed words and in a fixed order, and leave both names as they were."""

from __future__ import annotations

import errno
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.children import drop_rights, run_in_child
from pinned_root.moves import MOVES
from pinned_root.trees import DIRECTORY, FIFO, SOCKET, Entry, contents, link_to, plant
from support.descriptors import descriptors_kept
from support.failures import fails_with

SOURCE = "sub/inner.bin"
EXACT = "manifest relative path must be an exact relative POSIX path"
SEGMENTS = "manifest relative path must not contain empty, dot, or parent segments"
NO_TEXT = "manifest relative path must be a string"
SPECIAL = "contained file destination is a symlink or non-regular file: {}"

EACH = pytest.mark.parametrize("word", MOVES)

# One entry of each kind that may be at fault, on either side.
ODD: dict[str, Entry] = {
    "odd/link": link_to("../file.bin"),
    "odd/dangling": link_to("nowhere"),
    "odd/directory": DIRECTORY,
    "odd/fifo": FIFO,
    "odd/socket": SOCKET,
    "linked": link_to("sub"),
}


@pytest.fixture
def crowded(tree: Path) -> Path:
    plant(tree, ODD)
    return tree


@EACH
@pytest.mark.parametrize("path", ["odd/fifo", "odd/directory", "sub"])
def test_a_source_that_is_no_regular_file_is_refused_without_blocking(
    root: PinnedRoot, crowded: Path, word: str, path: str
) -> None:
    before = contents(crowded)
    text = f"contained {word} source must be regular: {path}"
    with descriptors_kept(), fails_with(ValueError, text) as caught:
        MOVES[word](root, path, "new/fresh")
    assert caught.error.__context__ is None
    assert contents(crowded) == before


@EACH
@pytest.mark.parametrize(
    ("path", "kind", "code"),
    [
        ("odd/link", OSError, errno.ELOOP),
        ("odd/dangling", OSError, errno.ELOOP),
        ("linked", OSError, errno.ELOOP),
        ("odd/socket", OSError, errno.ENXIO),
        ("odd/absent", FileNotFoundError, errno.ENOENT),
        ("odd/" + "n" * 256, OSError, errno.ENAMETOOLONG),
    ],
)
def test_a_source_that_cannot_be_opened_is_the_hosts_failure(
    root: PinnedRoot, crowded: Path, word: str, path: str, kind: type[OSError], code: int
) -> None:
    before = contents(crowded)
    with descriptors_kept(), fails_with(kind, None) as caught:
        MOVES[word](root, path, "new/fresh")
    assert isinstance(caught.error, OSError)
    assert (caught.error.errno, caught.error.filename) == (code, path.split("/")[-1])
    assert caught.error.__context__ is None
    assert contents(crowded) == before


@EACH
@pytest.mark.parametrize("name", ["link", "dangling", "directory", "fifo", "socket"])
def test_a_destination_that_is_no_regular_file_is_never_replaced(
    root: PinnedRoot, crowded: Path, word: str, name: str
) -> None:
    before = contents(crowded)
    with descriptors_kept(), fails_with(ValueError, SPECIAL.format(f"odd/{name}")):
        MOVES[word](root, SOURCE, f"odd/{name}")
    assert contents(crowded) == before


@EACH
@pytest.mark.parametrize("side", ["source", "destination"])
@pytest.mark.parametrize("segment", ["linked", "file.bin", "odd/fifo"])
def test_a_parent_that_is_no_real_directory_is_refused(
    root: PinnedRoot, crowded: Path, word: str, segment: str, side: str
) -> None:
    before = contents(crowded)
    paths = {"source": SOURCE, "destination": "fresh", side: f"{segment}/leaf"}
    text = f"contained {word} {side} has a non-directory or symlink parent: {segment}/leaf"
    with descriptors_kept(), fails_with(ValueError, text, cause=NotADirectoryError):
        MOVES[word](root, paths["source"], paths["destination"])
    assert contents(crowded) == before


@EACH
@pytest.mark.parametrize("path", ["absent/leaf", "sub/absent/leaf"])
def test_a_missing_parent_of_the_source_is_told_with_the_label(
    root: PinnedRoot, crowded: Path, word: str, path: str
) -> None:
    before = contents(crowded)
    text = f"contained {word} source has a missing parent: {path}"
    with descriptors_kept(), fails_with(FileNotFoundError, text, cause=FileNotFoundError):
        MOVES[word](root, path, "new/fresh")
    assert contents(crowded) == before


# Two faults at once: the paths, and the failure of the one that is looked at first.
PAIRS: dict[str, tuple[Any, Any, type[Exception], str]] = {
    "both paths": (None, "", TypeError, NO_TEXT),
    "both paths, the other way": ("/x", 5, ValueError, EXACT),
    "bad destination, no source parent": ("absent/leaf", "a//b", ValueError, SEGMENTS),
    "bad destination, no source": ("absent", None, TypeError, NO_TEXT),
    "bad destination, special source": ("odd/fifo", "../x", ValueError, SEGMENTS),
    "no source, linked destination parent": (
        "absent",
        "linked/x",
        FileNotFoundError,
        "[Errno 2] No such file or directory: 'absent'",
    ),
    "special source, linked destination parent": (
        "odd/fifo",
        "linked/x",
        ValueError,
        "contained {word} source must be regular: odd/fifo",
    ),
    "special source, special destination": (
        "odd/fifo",
        "odd/directory",
        ValueError,
        "contained {word} source must be regular: odd/fifo",
    ),
}


@EACH
@pytest.mark.parametrize("pair", PAIRS)
def test_the_first_of_two_faults_is_told(
    root: PinnedRoot, crowded: Path, word: str, pair: str
) -> None:
    source, destination, kind, text = PAIRS[pair]
    before = contents(crowded)
    with descriptors_kept(), fails_with(kind, text.format(word=word)):
        MOVES[word](root, source, destination)
    assert contents(crowded) == before


@EACH
def test_a_missing_source_parent_comes_before_a_linked_destination_parent(
    root: PinnedRoot, crowded: Path, word: str
) -> None:
    text = f"contained {word} source has a missing parent: absent/x"
    with descriptors_kept(), fails_with(FileNotFoundError, text, cause=FileNotFoundError):
        MOVES[word](root, "absent/x", "linked/x")


@EACH
def test_a_closed_root_comes_after_the_paths_and_before_the_disk(
    root: PinnedRoot, crowded: Path, word: str
) -> None:
    root.close()
    with fails_with(ValueError, EXACT):
        MOVES[word](root, SOURCE, "")
    for source in (SOURCE, "absent/leaf", "odd/link"):
        with fails_with(RuntimeError, "pinned root is closed"):
            MOVES[word](root, source, "new/fresh")
    assert not (crowded / "new").exists()


@EACH
def test_made_parents_stay_when_the_destination_is_refused_further_down(
    root: PinnedRoot, crowded: Path, word: str
) -> None:
    """The name is fine until its last directory has been made, and too long only then."""
    path = f"new/newer/{'n' * 256}"
    with descriptors_kept(), fails_with(OSError, None) as caught:
        MOVES[word](root, SOURCE, path)
    assert isinstance(caught.error, OSError) and caught.error.errno == errno.ENAMETOOLONG
    assert (crowded / "new" / "newer").is_dir()
    assert (crowded / SOURCE).read_bytes() == b"inner bytes"


@EACH
@pytest.mark.parametrize(("leaf", "mode"), [("source", 0), ("directory", 0o555)])
def test_a_lack_of_rights_is_the_hosts_failure(
    root: PinnedRoot, tree: Path, word: str, leaf: str, mode: int
) -> None:
    """A source that may not be read is refused too, as it has to be held open."""
    place = tree / SOURCE if leaf == "source" else tree / "sub"
    place.chmod(mode)

    def refused() -> None:
        drop_rights()
        with descriptors_kept(), fails_with(PermissionError, None) as caught:
            MOVES[word](root, SOURCE, "sub/deep/leaf.bin")
        assert caught.error.__context__ is None

    try:
        run_in_child(refused)
    finally:
        place.chmod(0o755)
    assert (tree / SOURCE).read_bytes() == b"inner bytes"
    assert (tree / "sub" / "deep" / "leaf.bin").read_bytes() == b"leaf bytes"
