"""Proves on a real disk what each one-shot function gives, changes and refuses."""

from __future__ import annotations

import os
import threading
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from path_level.members import MEMBERS, Member
from support.distribution import sha256_of
from support.failures import fails_with


def files_in(tree: Path) -> list[str]:
    return sorted(str(path.relative_to(tree)) for path in tree.rglob("*") if not path.is_dir())


def test_a_read_gives_the_bytes(tree: Path) -> None:
    assert client_manifest.read_contained_regular_file(tree, "sub/leaf.bin", label="f") == (
        b"leaf bytes"
    )
    text = "f is missing: sub/absent"
    with fails_with(FileNotFoundError, text, cause=FileNotFoundError):
        client_manifest.read_contained_regular_file(tree, "sub/absent", label="f")


def test_a_read_if_present_gives_the_bytes_or_none(tree: Path) -> None:
    read = client_manifest.read_contained_regular_file_if_present
    assert read(tree, "sub/leaf.bin", label="f") == b"leaf bytes"
    assert read(tree, "absent", label="f") is None
    assert read(tree, "absent/below", label="f") is None
    with fails_with(ValueError, "f must be a regular file: sub"):
        read(tree, "sub", label="f")


def test_a_stat_gives_what_the_host_sees(tree: Path) -> None:
    found = client_manifest.stat_contained_regular_file(tree, "sub/leaf.bin", label="f")
    assert type(found) is os.stat_result
    assert found == os.stat(tree / "sub" / "leaf.bin")
    with fails_with(FileNotFoundError, "[Errno 2] No such file or directory: 'absent'"):
        client_manifest.stat_contained_regular_file(tree, "absent", label="f")


@pytest.mark.parametrize("keywords", [{}, {"chunk_bytes": 1}, {"chunk_bytes": 2**21}], ids=str)
def test_an_identity_and_a_hash_give_the_same_digest(tree: Path, keywords: Any) -> None:
    identity = client_manifest.identify_contained_regular_file(
        tree, "sub/leaf.bin", label="f", **keywords
    )
    assert type(identity) is client_manifest.ContainedFileIdentity
    here = os.stat(tree / "sub" / "leaf.bin")
    assert identity.stat_key == (
        here.st_size,
        here.st_mtime_ns,
        here.st_ctime_ns,
        here.st_dev,
        here.st_ino,
    )
    digest = client_manifest.hash_contained_regular_file(
        tree, "sub/leaf.bin", label="f", **keywords
    )
    assert digest == identity.sha256 == sha256_of(b"leaf bytes")


@pytest.mark.parametrize(
    "function", ["identify_contained_regular_file", "hash_contained_regular_file"]
)
def test_a_bad_chunk_is_refused_before_a_bad_path(function: str, tree: Path) -> None:
    target = getattr(client_manifest, function)
    with fails_with(TypeError, "hash chunk_bytes must be an integer"):
        target(tree, "../a", label="f", chunk_bytes=True)
    with fails_with(ValueError, "hash chunk_bytes must be positive"):
        target(tree, "../a", label="f", chunk_bytes=0)


def test_a_write_publishes_the_payload(tree: Path) -> None:
    write = client_manifest.write_contained_regular_file
    assert write(tree, "new/leaf", b"new") == f"{tree}/new/leaf"
    assert (tree / "new" / "leaf").read_bytes() == b"new"
    assert write(tree, "new/leaf", b"newer") == f"{tree}/new/leaf"
    assert (tree / "new" / "leaf").read_bytes() == b"newer"
    assert os.listdir(tree / "new") == ["leaf"]


def test_a_write_that_may_not_replace_keeps_the_file(tree: Path) -> None:
    with fails_with(FileExistsError, "contained file already exists: file.bin"):
        client_manifest.write_contained_regular_file(tree, "file.bin", b"new", allow_replace=False)
    assert (tree / "file.bin").read_bytes() == b"outer bytes"
    assert client_manifest.write_contained_regular_file(
        tree, "fresh.bin", b"", allow_replace=False
    ) == str(tree / "fresh.bin")


def test_a_write_of_what_is_no_bytes_is_refused(tree: Path) -> None:
    payload: Any = bytearray(b"no")
    with fails_with(TypeError, "contained file payload must be bytes"):
        client_manifest.write_contained_regular_file(tree, "new/leaf", payload)
    assert not (tree / "new").exists()


def test_a_removal_tells_whether_there_was_a_file(tree: Path) -> None:
    remove = client_manifest.remove_contained_regular_file
    assert remove(tree, "sub/leaf.bin") is True
    assert remove(tree, "sub/leaf.bin") is False
    assert remove(tree, "absent/leaf") is False
    with fails_with(FileNotFoundError, None):
        remove(tree, "sub/leaf.bin", missing_ok=False)
    with fails_with(ValueError, "contained removal file must be regular: sub"):
        remove(tree, "sub")
    assert files_in(tree) == ["file.bin", "sub/deep/lost.tmp", "sub/kept.tmp", "top.tmp"]


def test_a_clean_up_by_suffix_gives_the_sorted_paths(tree: Path) -> None:
    removed = client_manifest.cleanup_contained_regular_files(
        tree, suffix=".tmp", preserve_relative_paths={"sub/kept.tmp"}
    )
    assert removed == ("sub/deep/lost.tmp", "top.tmp")
    assert files_in(tree) == ["file.bin", "sub/kept.tmp", "sub/leaf.bin"]


def test_a_clean_up_by_prefix_gives_the_sorted_paths(tree: Path) -> None:
    removed = client_manifest.cleanup_contained_regular_files_in_prefixes(
        tree, prefixes=("sub/",), preserve_relative_paths={"sub/kept.tmp"}
    )
    assert removed == ("sub/deep/lost.tmp", "sub/leaf.bin")
    assert files_in(tree) == ["file.bin", "sub/kept.tmp", "top.tmp"]


def test_a_clean_up_of_no_prefix_removes_nothing(tree: Path) -> None:
    before = files_in(tree)
    assert (
        client_manifest.cleanup_contained_regular_files_in_prefixes(
            tree, prefixes=(), preserve_relative_paths={"/unseen"}
        )
        == ()
    )
    assert files_in(tree) == before


def test_a_selector_is_not_taken_by_position(tree: Path) -> None:
    by_suffix: Any = client_manifest.cleanup_contained_regular_files
    by_prefix: Any = client_manifest.cleanup_contained_regular_files_in_prefixes
    before = files_in(tree)
    with fails_with(TypeError, None):
        by_suffix(tree, ".tmp", preserve_relative_paths=set())
    with fails_with(TypeError, None):
        by_prefix(tree, ("sub",), preserve_relative_paths=set())
    with fails_with(TypeError, None):
        by_suffix(tree, suffix=".tmp")
    for target in (by_suffix, by_prefix):
        with fails_with(TypeError, None):
            target(tree, preserve_relative_paths=set())
    with fails_with(TypeError, None):
        by_prefix(tree, prefixes=("sub",))
    assert files_in(tree) == before


def test_a_directory_is_made_and_may_exist(tree: Path) -> None:
    ensure = client_manifest.ensure_contained_directory
    for _ in range(2):
        assert ensure(tree, "one/two/three") == f"{tree}/one/two/three"
        assert (tree / "one" / "two" / "three").is_dir()
    text = "contained directory has a symlink or non-directory segment: file.bin"
    with fails_with(ValueError, text, cause=NotADirectoryError):
        ensure(tree, "file.bin")


def test_a_tree_is_removed_and_its_absence_is_told(tree: Path) -> None:
    remove = client_manifest.remove_contained_directory_tree
    assert remove(tree, "sub") is True
    assert files_in(tree) == ["file.bin", "top.tmp"]
    assert remove(tree, "sub") is False
    assert remove(tree, "absent/below") is False
    with fails_with(FileNotFoundError, None):
        remove(tree, "sub", missing_ok=False)


@pytest.mark.parametrize(
    "member",
    [member for member in MEMBERS if "label" in member.keywords],
    ids=lambda member: member.function,
)
def test_a_label_has_no_default(member: Member, tree: Path) -> None:
    function: Any = getattr(client_manifest, member.function)
    with fails_with(TypeError, None):
        function(tree, *member.args)
    with fails_with(TypeError, None):
        function(tree, *member.args, "by position")


def test_calls_run_at_once_on_many_threads(tree: Path) -> None:
    failures: list[BaseException] = []

    def work(number: int) -> None:
        try:
            for turn in range(5):
                path, payload = f"own{number}/leaf", b"%d %d" % (number, turn)
                client_manifest.write_contained_regular_file(tree, path, payload)
                read = client_manifest.read_contained_regular_file(tree, path, label="f")
                assert read == payload
        except BaseException as failure:
            failures.append(failure)

    threads = [threading.Thread(target=work, args=(number,)) for number in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert failures == []
