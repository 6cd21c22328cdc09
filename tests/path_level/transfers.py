"""What the transfer suites share: two roots on the disk, a fixed token, all three functions."""

from __future__ import annotations

import os
import re
from collections.abc import Iterator
from contextlib import contextmanager
from pathlib import Path
from types import SimpleNamespace
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.descriptors import open_descriptors

TOKEN = "0123456789abcdef"
TRANSFER_NAME = re.compile(r".+\.[0-9a-f]{16}\.tmp")

FUNCTIONS = (
    "move_contained_regular_file",
    "copy_contained_regular_file",
    "link_or_copy_contained_regular_file",
)
COPYING = FUNCTIONS[1:]


def transfer(function: str, *args: Any) -> Any:
    return getattr(client_manifest, function)(*args)


def fix_token(monkeypatch: pytest.MonkeyPatch, *tokens: str) -> list[int]:
    """Makes the module draw these tokens in turn; gives the sizes that it asks for."""
    left, asked = list(tokens), []

    def token_hex(size: int) -> str:
        asked.append(size)
        return left.pop(0)

    monkeypatch.setattr(client_manifest, "secrets", SimpleNamespace(token_hex=token_hex))
    return asked


def names_below(root: Path) -> list[str]:
    """Every name beneath `root`, sorted, directories too."""
    return sorted(str(path.relative_to(root)) for path in root.rglob("*"))


def transfer_names(root: Path) -> list[str]:
    return [name for name in names_below(root) if TRANSFER_NAME.fullmatch(name)]


@contextmanager
def strays_closed() -> Iterator[None]:
    """Closes what the block leaves open: a clean-up that fails half way may keep descriptors."""
    before = open_descriptors()
    try:
        yield
    finally:
        for descriptor in open_descriptors() - before:
            os.close(descriptor)
