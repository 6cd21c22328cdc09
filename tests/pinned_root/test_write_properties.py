"""Whatever is written to any contained path reads back, and a row of writes follows a model."""

from __future__ import annotations

import itertools
import os
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path

import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

from brindlefen.distribution.client_manifest import PinnedRoot, validate_manifest_relative_path
from pinned_root.staging import EXISTS, SPECIAL
from support.descriptors import descriptors_kept

# Leaves room for what the temporary name adds, in bytes of the disk.
LONGEST_SEGMENT = 180

# Surrogate escapes stand for bytes that are no UTF-8; no other surrogate is a name.
CHARACTERS = st.one_of(
    st.characters(blacklist_categories=("Cs",), blacklist_characters="/\\\0"),
    st.characters(min_codepoint=0xDC80, max_codepoint=0xDCFF, whitelist_categories=("Cs",)),
)


def is_segment(text: str) -> bool:
    return text not in (".", "..") and len(os.fsencode(text)) <= LONGEST_SEGMENT


def is_contained(path: str) -> bool:
    try:
        validate_manifest_relative_path(path)
    except ValueError:
        return False
    return True


SEGMENTS = st.text(CHARACTERS, min_size=1, max_size=20).filter(is_segment)
PATHS = st.lists(SEGMENTS, min_size=1, max_size=4).map("/".join).filter(is_contained)
PAYLOADS = st.one_of(
    st.binary(max_size=200),
    st.builds(lambda unit, times: unit * times, st.binary(min_size=1), st.integers(0, 20_000)),
)

# Few names, so that leaves and directories come into each other's way.
SMALL_PATHS = st.lists(st.sampled_from(["a", "b", "\udcff"]), min_size=1, max_size=3).map("/".join)
STEPS = st.lists(st.tuples(SMALL_PATHS, st.binary(max_size=8), st.booleans()), max_size=12)


@pytest.fixture
def places(tmp_path: Path) -> Iterator[Path]:
    """Fresh directories, one for each example."""
    return (tmp_path / str(number) for number in itertools.count())


@contextmanager
def fresh_root(places: Iterator[Path]) -> Iterator[PinnedRoot]:
    with descriptors_kept(), PinnedRoot(next(places), create=True) as root:
        yield root


def files_below(directory: Path) -> dict[str, bytes]:
    return {
        str(path.relative_to(directory)): path.read_bytes()
        for path in directory.rglob("*")
        if not path.is_dir()
    }


@settings(max_examples=40)
@given(path=PATHS, payload=PAYLOADS, other=PAYLOADS)
def test_what_was_written_is_read(
    places: Iterator[Path], path: str, payload: bytes, other: bytes
) -> None:
    with fresh_root(places) as root:
        root.write_atomic(path, payload, allow_replace=False)
        assert root.read_regular_file(path, label="file") == payload
        root.write_atomic(path, other, allow_replace=True)
        assert root.read_regular_file(path, label="file") == other
        with root.open_regular_file_for_update(path, create=False) as file:
            assert file.read() == other
            file.seek(0)
            file.write(b"!")
        assert root.read_regular_file(path, label="file") == b"!" + other[1:]
        assert len(files_below(root.path)) == 1


@settings(max_examples=40)
@given(path=PATHS, payload=PAYLOADS)
def test_what_an_update_made_is_read(places: Iterator[Path], path: str, payload: bytes) -> None:
    with fresh_root(places) as root:
        with root.open_regular_file_for_update(path, create=True) as file:
            file.write(payload)
        assert root.read_regular_file(path, label="file") == payload


def refusal(files: dict[str, bytes], path: str, allow: bool) -> str | None:
    """What the model says against a write, or None."""
    above = path.split("/")[:-1]
    for depth in range(1, len(above) + 1):
        if "/".join(above[:depth]) in files:
            return "contained file destination has a non-directory or symlink parent: " + path
    if any(file.startswith(path + "/") for file in files):
        return SPECIAL.format(path)
    if path in files and not allow:
        return EXISTS.format(path)
    return None


@settings(max_examples=80)
@given(steps=STEPS)
def test_a_row_of_writes_follows_the_model(
    places: Iterator[Path], steps: list[tuple[str, bytes, bool]]
) -> None:
    """Every refusal is the model's, and what stands in the end is the model's, and no more."""
    files: dict[str, bytes] = {}
    with fresh_root(places) as root:
        for path, payload, allow in steps:
            expected = refusal(files, path, allow)
            found = None
            try:
                root.write_atomic(path, payload, allow_replace=allow)
            except (ValueError, FileExistsError) as error:
                found = str(error)
            assert found == expected
            if expected is None:
                files[path] = payload
        assert files_below(root.path) == files
