"""Where the two contracts part, each difference is shown by one call over both kinds of root."""

from __future__ import annotations

from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any, NamedTuple

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.outcomes import outcome_of
from pinned_root.staging import acting
from pinned_root.trees import contents, link_to, plant
from windows.planted import DATA, FILES, Pin, swap
from windows.volume import DIRECTORY_REPARSE, FILE_REPARSE, Volume

SYSTEM = "[Errno 5] Windows handle-relative operation failed: {}"
NO_DIRECTORY = "[Errno 267] Windows handle-relative operation failed: {}"


class Told(NamedTuple):
    """How a call ends: the class and words of its failure, or its result and no class."""

    kind: type[BaseException] | None
    words: object


class Difference(NamedTuple):
    action: Callable[[Any], object]
    disk: Told
    held: Told


def wrote(root: Any, path: str) -> object:
    return root.write_atomic(path, b"new", allow_replace=True)


def update(root: Any, path: str) -> None:
    root.open_regular_file_for_update(path, create=False).close()


def read(root: Any, path: str) -> None:
    root.open_regular_file_for_read(path, label="file").close()


DIFFERENCES: dict[str, Difference] = {
    "a link as a parent": Difference(
        lambda root: read(root, "junction/leaf"),
        Told(ValueError, "file has a non-directory or symlink parent: junction/leaf"),
        Told(ValueError, "contained directory is an unsafe reparse point: junction/leaf"),
    ),
    "a file as a parent": Difference(
        lambda root: read(root, "file.bin/leaf"),
        Told(ValueError, "file has a non-directory or symlink parent: file.bin/leaf"),
        Told(ValueError, "file has a non-directory or reparse parent: file.bin/leaf"),
    ),
    "a link that is read": Difference(
        lambda root: read(root, "link"),
        Told(ValueError, "file is a symlink or is not safely readable: link"),
        Told(ValueError, "file is an unsafe reparse point: link"),
    ),
    "a directory that is read": Difference(
        lambda root: read(root, "sub"),
        Told(ValueError, "file must be a regular file: sub"),
        Told(ValueError, "file is a reparse point or is not safely readable: sub"),
    ),
    "a missing file that is opened": Difference(
        lambda root: read(root, "sub/absent"),
        Told(FileNotFoundError, "[Errno 2] No such file or directory: 'absent'"),
        Told(FileNotFoundError, "absent"),
    ),
    "a missing file that is updated": Difference(
        lambda root: update(root, "sub/absent"),
        Told(ValueError, "contained update file is a symlink or is unsafe: sub/absent"),
        Told(ValueError, "contained update file is a reparse point or is unsafe: sub/absent"),
    ),
    "a link that is updated": Difference(
        lambda root: update(root, "link"),
        Told(ValueError, "contained update file is a symlink or is unsafe: link"),
        Told(ValueError, "contained update file is an unsafe reparse point: link"),
    ),
    "a link that is written over": Difference(
        lambda root: wrote(root, "link"),
        Told(ValueError, "contained file destination is a symlink or non-regular file: link"),
        Told(ValueError, "contained file destination is an unsafe reparse point: link"),
    ),
    "a directory that is written over": Difference(
        lambda root: wrote(root, "sub"),
        Told(ValueError, "contained file destination is a symlink or non-regular file: sub"),
        Told(ValueError, "contained file destination must be a regular file: sub"),
    ),
    "a link that is removed": Difference(
        lambda root: root.remove_regular_file("link", missing_ok=True),
        Told(ValueError, "contained removal file must be regular: link"),
        Told(ValueError, "contained removal file is an unsafe reparse point: link"),
    ),
    "a directory that is removed as a file": Difference(
        lambda root: root.remove_regular_file("sub", missing_ok=True),
        Told(ValueError, "contained removal file must be regular: sub"),
        Told(OSError, SYSTEM.format("sub")),
    ),
    "a directory that is replaced from": Difference(
        lambda root: root.replace_regular_file("sub", "new"),
        Told(ValueError, "contained replacement source must be regular: sub"),
        Told(OSError, SYSTEM.format("sub")),
    ),
    "a directory made over a file": Difference(
        lambda root: root.ensure_directory("file.bin"),
        Told(
            ValueError, "contained directory has a symlink or non-directory segment: file.bin"
        ),
        Told(OSError, NO_DIRECTORY.format("file.bin")),
    ),
    "a tree that is a file": Difference(
        lambda root: root.remove_directory_tree("file.bin", missing_ok=True),
        Told(ValueError, "contained directory removal target is a symlink or unsafe: file.bin"),
        Told(OSError, NO_DIRECTORY.format("file.bin")),
    ),
    "a tree that is a link": Difference(
        lambda root: root.remove_directory_tree("junction", missing_ok=True),
        Told(ValueError, "contained directory removal target is a symlink or unsafe: junction"),
        Told(ValueError, "contained directory is an unsafe reparse point: junction"),
    ),
    "a link in a tree": Difference(
        lambda root: root.remove_directory_tree("linked", missing_ok=True),
        Told(
            ValueError,
            "contained directory removal encountered a symlink or unsafe file: linked/odd",
        ),
        Told(
            ValueError,
            "contained directory removal target is an unsafe reparse point: linked/odd",
        ),
    ),
    "a link that a cleanup picks": Difference(
        lambda root: root.remove_regular_files_in_prefixes(
            ("linked",), preserve_relative_paths=set()
        ),
        Told(ValueError, "contained cleanup target is a symlink or unsafe file: linked/odd"),
        Told(ValueError, "contained cleanup target is an unsafe reparse point: linked/odd"),
    ),
    "a link to a directory that a cleanup passes": Difference(
        lambda root: root.remove_regular_files_with_suffix(
            ".none", preserve_relative_paths=set()
        ),
        Told(None, ()),
        Told(ValueError, "contained directory is an unsafe reparse point: junction"),
    ),
    "letter case": Difference(
        lambda root: root.read_regular_file_if_present("FILE.BIN", label="file"),
        Told(None, None),
        Told(None, FILES["file.bin"]),
    ),
}


@pytest.fixture
def place(tmp_path: Path) -> Path:
    place = tmp_path / DATA
    place.mkdir()
    links = {"link": link_to("file.bin"), "junction": link_to("sub")}
    plant(place, {**FILES, **links, "linked/odd": link_to("nowhere")})
    return place


@pytest.fixture
def disk(place: Path) -> Iterator[PinnedRoot]:
    root = PinnedRoot(place)
    yield root
    root.close()


@pytest.fixture
def held(volume: Volume, pin: Pin) -> Any:
    links = {"link": FILE_REPARSE, "junction": DIRECTORY_REPARSE, "linked/odd": FILE_REPARSE}
    volume.plant({**FILES, **links}, below=DATA)
    return pin()


def told(action: Callable[[Any], object], root: Any) -> Told:
    ended = outcome_of(lambda: action(root))
    kind = getattr(ended, "kind", None)
    return Told(kind, ended[0] if kind is None else getattr(ended, "text"))


@pytest.mark.parametrize("name", DIFFERENCES)
def test_a_difference_is_as_stated(
    disk: PinnedRoot, place: Path, held: Any, volume: Volume, name: str
) -> None:
    stated = DIFFERENCES[name]
    before = contents(place), volume.tree()
    assert told(stated.action, disk) == stated.disk
    assert told(stated.action, held) == stated.held
    assert (contents(place), volume.tree()) == before


def test_a_link_that_is_carried_is_told_by_the_system_or_by_the_judgement(
    disk: PinnedRoot, held: Any
) -> None:
    action: Callable[[Any], object] = lambda root: root.replace_regular_file("link", "new")
    assert told(action, disk).kind is OSError
    text = "contained replacement source is an unsafe reparse point: link"
    assert told(action, held) == Told(ValueError, text)


WRITES: dict[str, Callable[[Any], object]] = {
    "write": lambda root: wrote(root, "new"),
    "replace": lambda root: root.replace_regular_file("file.bin", "new"),
    "move": lambda root: root.move_regular_file_to("file.bin", root, "new"),
}


@pytest.mark.parametrize("name", WRITES)
def test_only_a_root_of_handles_proves_itself_after_a_write(
    disk: PinnedRoot, place: Path, held: Any, volume: Volume, name: str
) -> None:
    place.rename(place.with_name("aside"))
    swap(volume, DATA)
    assert told(WRITES[name], disk) == Told(None, None)
    text = "pinned root canonical path changed during operation"
    assert told(WRITES[name], held) == Told(ValueError, text)
    assert (place.with_name("aside") / "new").exists() and volume.exists("data.aside/new")


def test_only_a_root_of_handles_knows_what_was_opened_for_update(
    disk: PinnedRoot, place: Path, held: Any, volume: Volume
) -> None:
    update(disk, "file.bin")
    update(held, "file.bin")
    (place / "file.bin").unlink()
    (place / "file.bin").write_bytes(b"foreign")
    volume.replace("data/file.bin", b"foreign")
    action: Callable[[Any], object] = lambda root: root.replace_regular_file("file.bin", "new")
    assert told(action, disk) == Told(None, None)
    text = "contained replacement source identity changed: file.bin"
    assert told(action, held) == Told(ValueError, text)


def test_a_late_competitor_is_replaced_on_a_disk_and_refused_on_a_volume(
    place: Path, held: Any, volume: Volume, boundary: Any
) -> None:
    """The one asks before it renames; the other has the rename itself refuse."""
    action: Callable[[Any], object] = lambda root: root.write_atomic(
        "new", b"new", allow_replace=False
    )
    boundary.hook("rename", 1, before=lambda: volume.plant({"data/new": b"foreign"}))
    assert told(action, held) == Told(FileExistsError, "new")
    assert volume.read("data/new") == b"foreign"
    competing = acting("after", 2, lambda: (place / "new").write_bytes(b"foreign"))
    with competing(place) as disk:
        assert told(action, disk) == Told(None, None)
    assert (place / "new").read_bytes() == b"new"
