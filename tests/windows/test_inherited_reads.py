"""Reading, hashing and stating run as they are inherited, over handles and with their proofs."""

from __future__ import annotations

import hashlib
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from brindlefen.distribution.client_manifest import PinnedRoot
from support.failures import fails_with
from windows.planted import (
    BAD_PATHS,
    CLOSED,
    FILES,
    PATH,
    Pin,
    at,
    planted,
)
from windows.reading import READS
from windows.volume import DIRECTORY_REPARSE, FILE_REPARSE, Volume

LARGE = bytes(range(256)) * 10_000
LEAF = at(PATH)

INHERITED = (
    "__enter__",
    "__exit__",
    "read_regular_file",
    "read_regular_file_with_stat",
    "_read_open_regular_file_with_stat",
    "read_regular_file_if_present",
    "hash_regular_file",
    "hash_open_regular_file",
    "assert_open_regular_file_identity",
    "stat_regular_file",
)


@pytest.fixture
def root(volume: Volume, pin: Pin) -> Any:
    links = {"link": FILE_REPARSE, "junction": DIRECTORY_REPARSE}
    return planted(volume, pin, {"large": LARGE, "empty": b"", **links})


@pytest.mark.parametrize("name", INHERITED)
def test_the_operation_is_the_inherited_one(name: str) -> None:
    assert name not in vars(client_manifest._WindowsPinnedRoot)
    assert getattr(client_manifest._WindowsPinnedRoot, name) is getattr(PinnedRoot, name)


@pytest.mark.parametrize("path", [*FILES, "large", "empty"])
def test_a_file_is_read_hashed_and_stated(root: Any, path: str) -> None:
    content = {**FILES, "large": LARGE, "empty": b""}[path]
    assert root.read_regular_file(path, label="file") == content
    assert root.read_regular_file_if_present(path, label="file") == content
    payload, stated = root.read_regular_file_with_stat(path, label="file")
    assert payload == content and stated.st_size == len(content)
    again = root.stat_regular_file(path, label="file")
    key = client_manifest._regular_file_stat_key
    assert key(again) == key(stated)
    for chunk in (7, 1 << 20):
        identity = root.hash_regular_file(path, label="file", chunk_bytes=chunk)
        assert identity.sha256 == hashlib.sha256(content).hexdigest()
        assert identity.stat_key == key(stated)


def test_an_open_file_is_hashed_from_its_start_and_proved_later(root: Any, volume: Volume) -> None:
    with root.open_regular_file_for_read(PATH, label="file") as file:
        file.read(3)
        identity = root.hash_open_regular_file(file, PATH, label="file")
        assert identity.sha256 == hashlib.sha256(FILES[PATH]).hexdigest()
        prove = root.assert_open_regular_file_identity
        assert prove(file, PATH, label="file", identity=identity) is None
        volume.touch(LEAF)
        with fails_with(ValueError, f"file changed while open: {PATH}"):
            prove(file, PATH, label="file", identity=identity)


EACH = pytest.mark.parametrize("read", READS.values(), ids=READS)


@EACH
@pytest.mark.parametrize(
    ("path", "text", "cause"),
    [
        ("link", "file is an unsafe reparse point: link", None),
        ("junction", "file is a reparse point or is not safely readable: junction", OSError),
        ("sub", "file is a reparse point or is not safely readable: sub", OSError),
        ("link/leaf", "file has a non-directory or reparse parent: link/leaf", OSError),
        ("file.bin/leaf", "file has a non-directory or reparse parent: file.bin/leaf", OSError),
        ("junction/leaf", "contained directory is an unsafe reparse point: junction/leaf", None),
    ],
)
def test_what_is_no_regular_file_is_refused(
    root: Any, read: Any, path: str, text: str, cause: Any
) -> None:
    with fails_with(ValueError, text, cause=cause):
        read(root, path)


PARENTLESS = "file has a missing parent: absent/leaf"


@pytest.mark.parametrize(
    ("read", "path", "text", "cause"),
    [
        ("read", "sub/absent", "file is missing: sub/absent", FileNotFoundError),
        ("read", "absent/leaf", "file is missing: absent/leaf", FileNotFoundError),
        ("read with stat", "absent/leaf", "file is missing: absent/leaf", FileNotFoundError),
        ("hash", "sub/absent", "absent", None),
        ("hash", "absent/leaf", PARENTLESS, FileNotFoundError),
        ("stat", "sub/absent", "absent", None),
        ("stat", "absent/leaf", PARENTLESS, FileNotFoundError),
    ],
)
def test_what_is_missing_is_told_in_the_reads_own_way(
    root: Any, read: str, path: str, text: str, cause: Any
) -> None:
    with fails_with(FileNotFoundError, text, cause=cause):
        READS[read](root, path)


@pytest.mark.parametrize("path", ["sub/absent", "absent/leaf", "absent"])
def test_what_is_missing_may_be_none(root: Any, path: str) -> None:
    assert root.read_regular_file_if_present(path, label="file") is None


@EACH
@pytest.mark.parametrize("case", BAD_PATHS)
def test_the_path_is_judged_before_the_root(root: Any, read: Any, case: str) -> None:
    path, kind, text = BAD_PATHS[case]
    root.close()
    with fails_with(kind, text):
        read(root, path)
    with fails_with(RuntimeError, CLOSED):
        read(root, PATH)


@pytest.mark.parametrize(
    ("chunk", "kind", "text"),
    [
        (True, TypeError, "hash chunk_bytes must be an integer"),
        (1.0, TypeError, "hash chunk_bytes must be an integer"),
        (0, ValueError, "hash chunk_bytes must be positive"),
        (-1, ValueError, "hash chunk_bytes must be positive"),
    ],
)
def test_the_chunk_is_judged_before_the_path(
    root: Any, chunk: object, kind: type[Exception], text: str
) -> None:
    with fails_with(kind, text):
        root.hash_regular_file("/bad", label="file", chunk_bytes=chunk)
