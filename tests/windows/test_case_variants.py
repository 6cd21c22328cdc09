"""Names that differ in letter case alone reach one object, and keep the case that they have."""

from __future__ import annotations

from typing import Any

import pytest

from support.failures import fails_with
from windows.planted import FILES, PATH, Pin, at, directories, files, planted
from windows.volume import Volume

VARIANTS = ["sub/INNER.bin", "SUB/inner.bin", "Sub/Inner.Bin"]


@pytest.fixture
def root(volume: Volume, pin: Pin) -> Any:
    return planted(volume, pin)


@pytest.mark.parametrize("path", VARIANTS)
def test_a_variant_is_read_hashed_and_stated_as_the_same_file(root: Any, path: str) -> None:
    assert root.read_regular_file(path, label="file") == FILES[PATH]
    assert root.hash_regular_file(path, label="file") == root.hash_regular_file(PATH, label="file")
    assert root.stat_regular_file(path, label="file").st_size == len(FILES[PATH])


@pytest.mark.parametrize("path", VARIANTS)
def test_a_variant_exists_already(root: Any, volume: Volume, path: str) -> None:
    before = volume.tree()
    with fails_with(FileExistsError, f"contained file already exists: {path}"):
        root.write_atomic(path, b"new", allow_replace=False)
    assert volume.tree() == before


@pytest.mark.parametrize("path", VARIANTS)
def test_a_write_of_a_variant_replaces_the_file_and_gives_its_case_to_the_leaf(
    root: Any, volume: Volume, path: str
) -> None:
    root.write_atomic(path, b"new", allow_replace=True)
    leaf = path.split("/")[-1]
    assert files(volume) == {
        **{name: found for name, found in FILES.items() if name != PATH},
        f"sub/{leaf}": b"new",
    }


@pytest.mark.parametrize("path", VARIANTS)
def test_a_variant_is_removed(root: Any, volume: Volume, path: str) -> None:
    assert root.remove_regular_file(path, missing_ok=False) is True
    assert PATH not in files(volume)


@pytest.mark.parametrize("path", VARIANTS)
@pytest.mark.parametrize("carry", ["replace", "move"])
def test_a_file_may_be_given_another_case(
    root: Any, volume: Volume, carry: str, path: str
) -> None:
    identity = volume.identity_of(at(PATH))
    if carry == "replace":
        root.replace_regular_file(PATH, path)
    else:
        root.move_regular_file_to(PATH, root, path)
    leaf = path.split("/")[-1]
    assert f"sub/{leaf}" in files(volume)
    assert volume.identity_of(at(PATH)) == identity and len(files(volume)) == len(FILES)


def test_no_second_directory_is_made(root: Any, volume: Volume) -> None:
    before = directories(volume)
    root.ensure_directory("SUB/Deep")
    assert directories(volume) == before
    root.ensure_directory("SUB/New")
    assert directories(volume) == before | {"sub/New"}


def test_an_update_of_a_variant_opens_the_same_file(root: Any, volume: Volume) -> None:
    with root.open_regular_file_for_update("SUB/INNER.BIN", create=True) as file:
        file.write(b"IN")
    assert volume.read(at(PATH)) == b"INner bytes" and len(files(volume)) == len(FILES)


def test_a_tree_is_removed_by_a_variant(root: Any, volume: Volume) -> None:
    assert root.remove_directory_tree("SUB", missing_ok=False) is True
    assert set(files(volume)) == {"file.bin"}


def test_the_cleanups_compare_the_texts_of_names(root: Any, volume: Volume) -> None:
    """Their selection is a question to the listing, not to the kernel."""
    preserved = {"SUB/INNER.BIN"}
    assert root.remove_regular_files_with_suffix(".BIN", preserve_relative_paths=set()) == ()
    assert root.remove_regular_files_in_prefixes(("SUB",), preserve_relative_paths=set()) == ()
    removed = root.remove_regular_files_in_prefixes(("sub",), preserve_relative_paths=preserved)
    assert removed == ("sub/deep/leaf.bin", "sub/inner.bin")


def test_a_root_that_takes_another_case_is_still_the_root(root: Any, volume: Volume) -> None:
    volume.move("data", "DATA")
    root.assert_root_unchanged()
    root.write_atomic("new", b"new", allow_replace=False)
    assert volume.read("data/new") == b"new"


def test_a_leaf_that_takes_another_case_during_a_read_is_still_the_leaf(
    root: Any, volume: Volume, boundary: Any
) -> None:
    boundary.hook("file_object", 1, after=lambda: volume.move(at(PATH), at("sub/INNER.BIN")))
    assert root.read_regular_file(PATH, label="file") == FILES[PATH]


def test_only_letters_of_one_kind_are_one(root: Any, volume: Volume) -> None:
    """Letters whose upper case has two letters, or that only look alike, stay apart."""
    for path in ("straße", "strasse", "STRASSE1", "e\u0301", "\u00e9"):
        root.write_atomic(path, path.encode(), allow_replace=False)
    assert len(files(volume)) == len(FILES) + 5
