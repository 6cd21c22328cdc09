"""Proves what a load finds, and what it leaves aside, when files change under its hands."""

from __future__ import annotations

import io
import os
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.distribution import (
    MEMBERS,
    SIGNAL_FILE,
    SIGNAL_PNL,
    Distribution,
    sha256_of,
)
from support.failures import fails_with

Act = Callable[[], object]
Inject = Callable[..., None]


def load(root: Path) -> Any:
    return client_manifest.load_accepted_distribution_set(root)


def replace_file(path: Path, content: bytes) -> None:
    staged = path.parent / "staged"
    staged.write_bytes(content)
    staged.rename(path)


def test_what_was_proved_may_change_afterwards(
    valid: Distribution, root: Path, inject: Inject
) -> None:
    inject(
        "hash_regular_file", lambda: replace_file(root / SIGNAL_PNL, b"other"), at=SIGNAL_PNL
    )
    inject("read_regular_file", lambda: replace_file(root / "manifest.json", b"{"))
    inject(
        "read_regular_file", lambda: (root / valid.reference).unlink(), at=valid.reference
    )
    loaded = load(root)
    assert loaded.manifest_bytes == valid.manifest_bytes()
    assert loaded.signals_index_bytes == valid.sidecar
    assert loaded.membership_paths == MEMBERS


def test_a_member_replaced_before_its_hash_is_found(
    valid: Distribution, root: Path, inject: Inject
) -> None:
    altered = valid.payloads[SIGNAL_PNL].upper()
    inject(
        "hash_regular_file", lambda: replace_file(root / SIGNAL_PNL, altered), at=SIGNAL_FILE
    )
    with fails_with(
        ValueError,
        f"manifest advertises membership file sha256 {sha256_of(valid.payloads[SIGNAL_PNL])}, "
        f"but {SIGNAL_PNL} is {sha256_of(altered)}",
    ):
        load(root)


def test_a_retired_sidecar_that_comes_before_its_look_is_found(root: Path, inject: Inject) -> None:
    inject("read_regular_file", lambda: (root / "signals_index.json").touch(), at="manifest.json")
    with fails_with(ValueError, "legacy signals_index.json sidecar is not supported"):
        load(root)


def test_a_retired_sidecar_that_comes_after_its_look_is_not_seen(
    root: Path, inject: Inject
) -> None:
    inject("read_regular_file_if_present", lambda: (root / "signals_index.json").touch())
    assert load(root).membership_paths == MEMBERS


def vanish(path: Path) -> None:
    path.unlink()


def become_same_content(path: Path) -> None:
    replace_file(path, path.read_bytes())


def become_directory(path: Path) -> None:
    path.unlink()
    path.mkdir()


def become_link(path: Path) -> None:
    path.rename(path.parent / "aside")
    path.symlink_to("aside")


def lose_parent(path: Path) -> None:
    path.parent.rename(path.parent.parent / "aside")


def link_parent(path: Path) -> None:
    lose_parent(path)
    path.parent.symlink_to("aside")


# What happens to the path while the file is open, and how its path proof fails.
SWAPS = [
    (become_same_content, "path identity changed while open", None),
    (vanish, "path changed while open", FileNotFoundError),
    (become_directory, "path became a symlink or non-regular file", None),
    (become_link, "path became a symlink or non-regular file", None),
]


def files_of_a_load(valid: Distribution) -> dict[str, str]:
    return {
        "manifest.json": "manifest.json",
        valid.reference: "signals_index sidecar",
        SIGNAL_PNL: "membership file",
    }


@pytest.mark.parametrize("position", [0, 1, 2], ids=["manifest", "sidecar", "member"])
@pytest.mark.parametrize(("swap", "words", "cause"), SWAPS, ids=[s[0].__name__ for s in SWAPS])
def test_a_path_swapped_while_its_file_is_open_is_found(
    valid: Distribution,
    root: Path,
    inject: Inject,
    position: int,
    swap: Callable[[Path], None],
    words: str,
    cause: type[Exception] | None,
) -> None:
    path, label = list(files_of_a_load(valid).items())[position]
    inject("open_regular_file_for_read", lambda: swap(root / path), at=path)
    with fails_with(ValueError, f"{label} {words}: {path}", cause=cause):
        load(root)


@pytest.mark.parametrize("position", [1, 2], ids=["sidecar", "member"])
def test_a_parent_turned_into_a_link_while_the_file_is_open_is_found(
    valid: Distribution, root: Path, inject: Inject, position: int
) -> None:
    path, label = list(files_of_a_load(valid).items())[position]
    inject("open_regular_file_for_read", lambda: link_parent(root / path), at=path)
    with fails_with(
        ValueError,
        f"{label} has a non-directory or symlink parent: {path}",
        cause=NotADirectoryError,
    ):
        load(root)


def test_a_parent_lost_while_the_sidecar_is_open_counts_as_missing(
    valid: Distribution, root: Path, inject: Inject
) -> None:
    path = valid.reference
    inject("open_regular_file_for_read", lambda: lose_parent(root / path), at=path)
    with fails_with(
        FileNotFoundError, f"signals_index sidecar is missing: {path}", cause=FileNotFoundError
    ):
        load(root)


def test_a_parent_lost_while_a_member_is_open_is_named(root: Path, inject: Inject) -> None:
    inject("open_regular_file_for_read", lambda: lose_parent(root / SIGNAL_PNL), at=SIGNAL_PNL)
    with fails_with(
        FileNotFoundError,
        f"membership file has a missing parent: {SIGNAL_PNL}",
        cause=FileNotFoundError,
    ):
        load(root)


class Disturbed(io.BufferedReader):
    """A reader during whose first read something happens to the file."""

    act: Act | None = None

    def read(self, size: int | None = -1, /) -> bytes:
        chunk = super().read(size)
        if self.act is not None:
            self.act()
            self.act = None
        return chunk


def disturb_reads_of(monkeypatch: pytest.MonkeyPatch, path: str, act: Act) -> None:
    class Root(client_manifest.PinnedRoot):
        def open_regular_file_for_read(self, relative_path: str, *, label: str) -> Any:
            file = super().open_regular_file_for_read(relative_path, label=label)
            if relative_path != path:
                return file
            disturbed = Disturbed(file.detach())
            disturbed.act = act
            return disturbed

    monkeypatch.setattr(client_manifest, "PinnedRoot", Root)


def append(path: Path) -> None:
    with path.open("ab") as file:
        file.write(b"!")


def touch(path: Path) -> None:
    os.utime(path, ns=(1, 1))


@pytest.mark.parametrize("act", [append, touch])
@pytest.mark.parametrize("position", [0, 1, 2], ids=["manifest", "sidecar", "member"])
def test_a_file_changed_while_it_is_consumed_is_found(
    valid: Distribution,
    root: Path,
    monkeypatch: pytest.MonkeyPatch,
    position: int,
    act: Callable[[Path], None],
) -> None:
    path, label = list(files_of_a_load(valid).items())[position]
    disturb_reads_of(monkeypatch, path, lambda: act(root / path))
    verb = "hashed" if path == SIGNAL_PNL else "read"
    with fails_with(ValueError, f"{label} changed while being {verb}: {path}"):
        load(root)
