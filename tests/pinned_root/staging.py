"""What the tests of writes share: the temporary name, and a hand in between the steps."""

from __future__ import annotations

import itertools
import os
import re
import secrets
import threading
from collections.abc import Callable, Iterator
from contextlib import contextmanager
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import PinnedRoot
from support.descriptors import open_descriptors

TOKEN = "0123456789abcdef"
TEMPORARY = re.compile(r"\.(.+)\.([0-9]+)\.([0-9]+)\.([0-9a-f]{16})\.tmp", re.DOTALL)

SPECIAL = "contained file destination is a symlink or non-regular file: {}"
EXISTS = "contained file already exists: {}"
NO_BYTES = "contained file payload must be bytes"
BEFORE_PUBLISH = "contained file staging leaf changed before publish: {}"
DURING_PUBLISH = "contained file staging leaf changed during publish: {}"


def temporary_name(name: str, token: object = TOKEN) -> str:
    """The temporary name that this thread gives to a leaf."""
    return f".{name}.{os.getpid()}.{threading.get_ident()}.{token}.tmp"


def fix_token(monkeypatch: pytest.MonkeyPatch) -> None:
    """Makes every temporary name foreseeable for the rest of the test."""
    monkeypatch.setattr(secrets, "token_hex", lambda count: TOKEN)


def names_in(directory: Path) -> list[str]:
    return sorted(os.listdir(directory))


def staged_below(directory: Path) -> list[Path]:
    """All entries below `directory` that bear the form of a temporary name."""
    return [path for path in directory.rglob("*") if TEMPORARY.fullmatch(path.name)]


@contextmanager
def umask(mask: int) -> Iterator[None]:
    before = os.umask(mask)
    try:
        yield
    finally:
        os.umask(before)


@contextmanager
def strays_closed() -> Iterator[list[int]]:
    """Closes the descriptors that the block leaves open, and lists them afterwards."""
    before = open_descriptors()
    strays: list[int] = []
    try:
        yield strays
    finally:
        strays.extend(sorted(open_descriptors() - before))
        for stray in strays:
            os.close(stray)


def acting(when: str, look: int, action: Callable[[], object]) -> type[PinnedRoot]:
    """A root that runs `action` before or after a write's first or second look at its leaf."""
    looks = itertools.count(1)

    class Acting(PinnedRoot):
        pass

    def judge(*args: Any, **keywords: Any) -> None:
        number = next(looks)
        if (when, look) == ("before", number):
            action()
        PinnedRoot._assert_replaceable_leaf(*args, **keywords)
        if (when, look) == ("after", number):
            action()

    setattr(Acting, "_assert_replaceable_leaf", staticmethod(judge))
    return Acting
