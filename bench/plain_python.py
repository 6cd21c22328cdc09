"""Takes every step of a load in plain Python, as the measure of what the native module saves."""

from __future__ import annotations

import hashlib
import os
import stat
from pathlib import Path
from typing import IO

from plain_documents import accepted_paths, declared_sidecar, held_against, parse, safe_path

DIRECTORY_FLAGS = os.O_RDONLY | os.O_CLOEXEC | os.O_DIRECTORY | os.O_NOFOLLOW
LEAF_FLAGS = os.O_RDONLY | os.O_CLOEXEC | os.O_NOFOLLOW
CHUNK_BYTES = 1 << 20


def stat_key(found: os.stat_result) -> tuple[int, int, int, int, int]:
    return (found.st_size, found.st_mtime_ns, found.st_ctime_ns, found.st_dev, found.st_ino)


def walk(start: int, segments: tuple[str, ...]) -> int:
    """Opens one directory after another; takes `start` over and returns the last."""
    current = start
    try:
        for segment in segments:
            following = os.open(segment, DIRECTORY_FLAGS, dir_fd=current)
            if not stat.S_ISDIR(os.fstat(following).st_mode):
                os.close(following)
                raise ValueError("not a directory")
            os.close(current)
            current = following
    except BaseException:
        os.close(current)
        raise
    return current


class PlainRoot:
    """A directory held open by descriptor, below which nothing is reached through a link."""

    def __init__(self, root: str | Path) -> None:
        self.segments = Path(os.path.abspath(root)).parts[1:]
        self.descriptor = self._walk_from_the_top()

    def __enter__(self) -> PlainRoot:
        return self

    def __exit__(self, *_details: object) -> None:
        try:
            self.assert_root_unchanged()
        finally:
            self.close()

    def close(self) -> None:
        os.close(self.descriptor)

    def _walk_from_the_top(self) -> int:
        return walk(os.open("/", DIRECTORY_FLAGS), self.segments)

    def assert_root_unchanged(self) -> None:
        current = self._walk_from_the_top()
        try:
            pinned, found = os.fstat(self.descriptor), os.fstat(current)
            if (pinned.st_dev, pinned.st_ino) != (found.st_dev, found.st_ino):
                raise ValueError("the root is another directory now")
        finally:
            os.close(current)

    def _open_parent(self, path: str) -> tuple[int, str]:
        parts = path.split("/")
        return walk(os.dup(self.descriptor), tuple(parts[:-1])), parts[-1]

    def _open(self, path: str) -> IO[bytes]:
        parent, name = self._open_parent(path)
        try:
            descriptor = os.open(name, LEAF_FLAGS, dir_fd=parent)
        finally:
            os.close(parent)
        if not stat.S_ISREG(os.fstat(descriptor).st_mode):
            os.close(descriptor)
            raise ValueError("not a regular file")
        return os.fdopen(descriptor, "rb")

    def _prove(self, path: str, expected: os.stat_result) -> None:
        """The path proof, then the root proof."""
        parent, name = self._open_parent(path)
        try:
            found = os.stat(name, dir_fd=parent, follow_symlinks=False)
            if not stat.S_ISREG(found.st_mode) or stat_key(found) != stat_key(expected):
                raise ValueError("the path leads elsewhere now")
        finally:
            os.close(parent)
        self.assert_root_unchanged()

    def read_regular_file(self, path: str) -> bytes:
        path = safe_path(path)
        with self._open(path) as file:
            before = os.fstat(file.fileno())
            if not stat.S_ISREG(before.st_mode):
                raise ValueError("not a regular file")
            chunks = []
            while chunk := file.read(CHUNK_BYTES):
                chunks.append(chunk)
            after = os.fstat(file.fileno())
            size = sum(len(chunk) for chunk in chunks)
            if stat_key(before) != stat_key(after) or size != after.st_size:
                raise ValueError("changed while being read")
            self._prove(path, after)
            return b"".join(chunks)

    def hash_regular_file(self, path: str) -> tuple[int, str]:
        """Size and digest."""
        path = safe_path(path)
        with self._open(path) as file:
            before = os.fstat(file.fileno())
            if not stat.S_ISREG(before.st_mode):
                raise ValueError("not a regular file")
            file.seek(0)
            digest, size = hashlib.sha256(), 0
            while chunk := file.read(CHUNK_BYTES):
                size += len(chunk)
                digest.update(chunk)
            after = os.fstat(file.fileno())
            if stat_key(before) != stat_key(after) or size != after.st_size:
                raise ValueError("changed while being hashed")
            last = os.fstat(file.fileno())
            if stat_key(last) != stat_key(after):
                raise ValueError("changed while open")
            self._prove(path, last)
            return size, digest.hexdigest()

    def stat_regular_file(self, path: str) -> os.stat_result:
        path = safe_path(path)
        with self._open(path) as file:
            found = os.fstat(file.fileno())
            self._prove(path, found)
            return found


def load(root: str | Path) -> list[str]:
    """Authenticates a whole distribution and returns its membership paths."""
    with PlainRoot(root) as reader:
        manifest = parse(reader.read_regular_file("manifest.json"))
        try:
            reader.read_regular_file("signals_index.json")
        except FileNotFoundError:
            pass
        else:
            raise ValueError("legacy sidecar")
        sidecar = reader.read_regular_file(declared_sidecar(manifest))
        paths = accepted_paths(manifest, sidecar)
        for path in paths:
            held_against(manifest["files"][path], *reader.hash_regular_file(path))
        reader.assert_root_unchanged()
        return paths
