"""Reads and hashes need of a file only `fileno`, `read` and `seek`, and believe none of them."""

from __future__ import annotations

import hashlib
import os
from collections.abc import Callable, Iterator
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.disk import (
    cut,
    grow,
    move_away,
    replace_by_rename,
    swap_for_copy,
    swap_for_link,
    touch,
)
from support.descriptors import descriptors_kept
from support.failures import fails_with

PATH = "sub/inner.bin"
PAYLOAD = b"inner bytes"


class Fake:
    """A file of three methods over a real descriptor; it notes what was asked of it."""

    def __init__(self, descriptor: int, parts: list[Any]) -> None:
        self.descriptor = descriptor
        self.parts = list(parts)
        self.asked: list[object] = []
        self.before_end: Callable[[], object] = lambda: None

    def fileno(self) -> int:
        self.asked.append("fileno")
        return self.descriptor

    def read(self, size: int) -> Any:
        self.asked.append(("read", size))
        if self.parts:
            return self.parts.pop(0)
        self.before_end()
        return b""

    def seek(self, offset: int) -> object:
        self.asked.append(("seek", offset))
        return "ignored"


@pytest.fixture
def descriptor(tree: Path) -> Iterator[int]:
    descriptor = os.open(tree / PATH, os.O_RDONLY)
    yield descriptor
    os.close(descriptor)


def read(root: PinnedRoot, file: Any) -> Any:
    return root._read_open_regular_file_with_stat(file, PATH, label="file")[0]


def digest(root: PinnedRoot, file: Any) -> Any:
    return root.hash_open_regular_file(file, PATH, label="file").sha256


OPERATIONS = [(read, "read"), (digest, "hashed")]
both = pytest.mark.parametrize(("operation", "word"), OPERATIONS)


def test_a_read_asks_in_a_fixed_order(root: PinnedRoot, descriptor: int) -> None:
    fake = Fake(descriptor, [PAYLOAD])
    assert read(root, fake) == PAYLOAD
    chunk = ("read", 1_048_576)
    assert fake.asked == ["fileno", chunk, chunk, "fileno"]


def test_a_hash_asks_in_a_fixed_order(root: PinnedRoot, descriptor: int) -> None:
    fake = Fake(descriptor, [PAYLOAD])
    identity = root.hash_open_regular_file(fake, PATH, label="file", chunk_bytes=7)
    assert identity.sha256 == hashlib.sha256(PAYLOAD).hexdigest()
    chunk = ("read", 7)
    assert fake.asked == ["fileno", ("seek", 0), chunk, chunk, "fileno", "fileno"]


def test_a_hash_asks_for_a_mebibyte_unless_told_otherwise(
    root: PinnedRoot, descriptor: int
) -> None:
    fake = Fake(descriptor, [PAYLOAD])
    digest(root, fake)
    assert ("read", 1_048_576) in fake.asked


def test_a_recheck_asks_only_for_the_descriptor(root: PinnedRoot, descriptor: int) -> None:
    identity = root.hash_regular_file(PATH, label="file")
    fake = Fake(descriptor, [])
    root.assert_open_regular_file_identity(fake, PATH, label="file", identity=identity)
    assert fake.asked == ["fileno"]


@both
def test_the_first_empty_part_is_the_end(
    root: PinnedRoot, descriptor: int, operation: Any, word: str
) -> None:
    single = [PAYLOAD[i : i + 1] for i in range(len(PAYLOAD))]
    assert operation(root, Fake(descriptor, single)) == operation(root, Fake(descriptor, [PAYLOAD]))
    with fails_with(ValueError, f"file changed while being {word}: {PATH}"):
        operation(root, Fake(descriptor, [PAYLOAD[:3], b"", PAYLOAD[3:]]))


@both
@pytest.mark.parametrize("parts", [[], [PAYLOAD + b"!"], [PAYLOAD, PAYLOAD]])
def test_a_count_that_is_not_the_size_is_a_change(
    root: PinnedRoot, descriptor: int, operation: Any, word: str, parts: list[bytes]
) -> None:
    with descriptors_kept(), fails_with(ValueError, f"file changed while being {word}: {PATH}"):
        operation(root, Fake(descriptor, parts))


@both
@pytest.mark.parametrize("last", [None, "", bytearray(), (), 0])
def test_any_empty_value_ends_the_loop(
    root: PinnedRoot, descriptor: int, operation: Any, word: str, last: object
) -> None:
    expected = operation(root, Fake(descriptor, [PAYLOAD]))
    fake = Fake(descriptor, [PAYLOAD, last, b"never read"])
    assert operation(root, fake) == expected
    assert fake.parts == [b"never read"]


@both
def test_other_bytes_like_parts_are_taken(
    root: PinnedRoot, descriptor: int, operation: Any, word: str
) -> None:
    expected = operation(root, Fake(descriptor, [PAYLOAD]))
    parts = [bytearray(PAYLOAD[:4]), memoryview(PAYLOAD)[4:]]
    found = operation(root, Fake(descriptor, parts))
    assert type(found) is type(expected) and found == expected


def test_the_bytes_of_the_file_object_count_not_those_on_disk(
    root: PinnedRoot, descriptor: int
) -> None:
    """The proofs are about stat fields and counts; the parts come from the file object."""
    assert read(root, Fake(descriptor, [b"INNER BYTES"])) == b"INNER BYTES"
    upper = hashlib.sha256(b"INNER BYTES").hexdigest()
    assert digest(root, Fake(descriptor, [b"INNER BYTES"])) == upper


CHANGES_OF_THE_FILE = [touch, grow, cut]


@both
@pytest.mark.parametrize("change", CHANGES_OF_THE_FILE)
def test_a_change_of_the_file_during_the_read_fails_the_descriptor_proof(
    root: PinnedRoot, tree: Path, descriptor: int, operation: Any, word: str, change: Any
) -> None:
    fake = Fake(descriptor, [PAYLOAD])
    fake.before_end = lambda: change(tree / PATH)
    with descriptors_kept(), fails_with(ValueError, f"file changed while being {word}: {PATH}"):
        operation(root, fake)
    assert fake.asked[-1] == "fileno"


@both
def test_a_file_that_grew_and_was_read_to_its_new_end_still_changed(
    root: PinnedRoot, tree: Path, descriptor: int, operation: Any, word: str
) -> None:
    fake = Fake(descriptor, [PAYLOAD, b"more"])
    fake.before_end = lambda: grow(tree / PATH)
    with fails_with(ValueError, f"file changed while being {word}: {PATH}"):
        operation(root, fake)


@both
def test_a_leaf_replaced_or_removed_during_the_read_is_a_change(
    root: PinnedRoot, tree: Path, descriptor: int, operation: Any, word: str
) -> None:
    """Which proof sees it depends on whether the file system moved the change time."""
    for change, texts in (
        (lambda: replace_by_rename(tree / PATH), "path identity changed while open"),
        ((tree / PATH).unlink, "path changed while open"),
    ):
        fake = Fake(descriptor, [PAYLOAD])
        fake.before_end = change
        with pytest.raises(ValueError) as caught:
            operation(root, fake)
        assert str(caught.value) in {
            f"file changed while being {word}: {PATH}",
            f"file {texts}: {PATH}",
            f"file path identity changed while open: {PATH}",
        }


@both
@pytest.mark.parametrize(
    ("change", "kind", "text"),
    [
        (move_away, FileNotFoundError, f"file has a missing parent: {PATH}"),
        (swap_for_link, ValueError, f"file has a non-directory or symlink parent: {PATH}"),
        (swap_for_copy, ValueError, f"file path identity changed while open: {PATH}"),
    ],
)
def test_a_parent_that_changes_during_the_read_fails_the_path_proof(
    root: PinnedRoot,
    tree: Path,
    descriptor: int,
    operation: Any,
    word: str,
    change: Any,
    kind: type[Exception],
    text: str,
) -> None:
    fake = Fake(descriptor, [PAYLOAD])
    fake.before_end = lambda: change(tree / "sub")
    with descriptors_kept(), pytest.raises(kind) as caught:
        operation(root, fake)
    assert (type(caught.value), str(caught.value)) == (kind, text)


@both
@pytest.mark.parametrize(
    ("change", "words"),
    [
        (move_away, "changed or became unsafe during operation"),
        (swap_for_link, "changed or became unsafe during operation"),
        (swap_for_copy, "changed during operation"),
    ],
)
def test_a_root_that_changes_during_the_read_fails_the_root_proof(
    root: PinnedRoot,
    tree: Path,
    descriptor: int,
    operation: Any,
    word: str,
    change: Any,
    words: str,
) -> None:
    fake = Fake(descriptor, [PAYLOAD])
    fake.before_end = lambda: change(tree)
    with descriptors_kept(), pytest.raises(ValueError) as caught:
        operation(root, fake)
    assert str(caught.value) == f"pinned root canonical path {words}"


@both
def test_closing_the_root_during_the_read_is_seen_by_the_path_proof(
    tree: Path, descriptor: int, operation: Any, word: str
) -> None:
    with descriptors_kept():
        root = PinnedRoot(tree)
        fake = Fake(descriptor, [PAYLOAD])
        fake.before_end = root.close
        with fails_with(RuntimeError, "pinned root is closed"):
            operation(root, fake)


@both
@pytest.mark.parametrize("method", ["fileno", "read", "seek"])
def test_a_failure_of_the_file_passes_as_it_is(
    root: PinnedRoot, descriptor: int, operation: Any, word: str, method: str
) -> None:
    fake = Fake(descriptor, [PAYLOAD])

    def fail(*arguments: object) -> None:
        raise TimeoutError(method)

    setattr(fake, method, fail)
    if (operation, method) == (read, "seek"):
        assert read(root, fake) == PAYLOAD
        return
    with descriptors_kept(), fails_with(TimeoutError, method) as caught:
        operation(root, fake)
    assert caught.error.__context__ is None


def test_a_missing_file_error_of_the_file_is_translated_only_by_the_read(tree: Path) -> None:
    class Handing(PinnedRoot):
        def open_regular_file_for_read(self, relative_path: str, *, label: str) -> Any:
            file = super().open_regular_file_for_read(relative_path, label=label)

            class Gone:
                def __enter__(self) -> Gone:
                    return self

                def __exit__(self, *details: object) -> None:
                    file.close()

                def fileno(self) -> int:
                    raise FileNotFoundError("gone")

            return Gone()

    with Handing(tree) as root, descriptors_kept():
        with fails_with(
            FileNotFoundError, f"file is missing: {PATH}", cause=FileNotFoundError
        ):
            root.read_regular_file(PATH, label="file")
        assert root.read_regular_file_if_present(PATH, label="file") is None
        for operation in (root.hash_regular_file, root.stat_regular_file):
            with fails_with(FileNotFoundError, "gone"):
                operation(PATH, label="file")
