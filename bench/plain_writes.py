"""Takes every step of an atomic write in plain Python, with the same proofs."""

from __future__ import annotations

import os
import secrets
import stat
import threading

from plain_documents import safe_path
from plain_python import DIRECTORY_FLAGS, LEAF_FLAGS

STAGING_FLAGS = os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_CLOEXEC | os.O_NOFOLLOW
SOURCE_FLAGS = LEAF_FLAGS | os.O_NONBLOCK


def open_parent(pinned: int, path: str) -> tuple[int, str]:
    """The parent's descriptor and the leaf; directories that lack are made and made durable."""
    parts = path.split("/")
    current = os.dup(pinned)
    try:
        for part in parts[:-1]:
            try:
                os.mkdir(part, 0o755, dir_fd=current)
                os.fsync(current)
            except FileExistsError:
                pass
            following = os.open(part, DIRECTORY_FLAGS, dir_fd=current)
            if not stat.S_ISDIR(os.fstat(following).st_mode):
                os.close(following)
                raise ValueError("not a directory")
            os.close(current)
            current = following
    except BaseException:
        os.close(current)
        raise
    return current, parts[-1]


def require_replaceable(parent: int, name: str, allow_replace: bool) -> None:
    try:
        found = os.stat(name, dir_fd=parent, follow_symlinks=False)
    except FileNotFoundError:
        return
    if not stat.S_ISREG(found.st_mode):
        raise ValueError("not a regular file")
    if not allow_replace:
        raise FileExistsError("exists")


def same_regular_file(found: os.stat_result, expected: os.stat_result) -> bool:
    identity = (found.st_dev, found.st_ino)
    return stat.S_ISREG(found.st_mode) and identity == (expected.st_dev, expected.st_ino)


def write_all(descriptor: int, payload: bytes) -> None:
    view = memoryview(payload)
    while view:
        written = os.write(descriptor, view)
        if written <= 0:
            raise OSError("short write")
        view = view[written:]


def write_atomic(pinned: int, path: str, payload: bytes, *, allow_replace: bool) -> None:
    """Publishes a new file at the path, beneath the directory that is held open."""
    path = safe_path(path)
    if not isinstance(payload, bytes):
        raise TypeError("not bytes")
    parent, name = open_parent(pinned, path)
    token = secrets.token_hex(8)
    temporary = f".{name}.{os.getpid()}.{threading.get_ident()}.{token}.tmp"
    staged = source = None
    try:
        require_replaceable(parent, name, allow_replace)
        staged = os.open(temporary, STAGING_FLAGS, 0o600, dir_fd=parent)
        write_all(staged, payload)
        os.fsync(staged)
        staged_stat = os.fstat(staged)
        closing, staged = staged, None
        os.close(closing)
        source = os.open(temporary, SOURCE_FLAGS, dir_fd=parent)
        source_stat = os.fstat(source)
        if not same_regular_file(source_stat, staged_stat):
            raise ValueError("the staged file changed before it was published")
        require_replaceable(parent, name, allow_replace)
        os.rename(temporary, name, src_dir_fd=parent, dst_dir_fd=parent)
        final_stat = os.stat(name, dir_fd=parent, follow_symlinks=False)
        if not same_regular_file(final_stat, source_stat):
            os.unlink(name, dir_fd=parent)
            os.fsync(parent)
            raise ValueError("the staged file changed while it was published")
        os.fsync(parent)
    finally:
        if staged is not None:
            os.close(staged)
        if source is not None:
            os.close(source)
        try:
            os.unlink(temporary, dir_fd=parent)
        except FileNotFoundError:
            pass
        os.close(parent)
