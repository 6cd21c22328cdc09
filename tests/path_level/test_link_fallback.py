"""Proves that a link that cannot be made becomes a copy, whatever the reason, and only then."""

from __future__ import annotations

import os
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from path_level.transfers import TOKEN, fix_token, names_below, strays_closed
from support.failures import fails_with

link = client_manifest.link_or_copy_contained_regular_file

SECOND = "f" * 16
STAGED = f"one/carried.{TOKEN}.tmp"


@pytest.fixture
def other(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> Path:
    """The destination root; a file of its own stands at the transfer name of the link."""
    fix_token(monkeypatch, TOKEN, SECOND)
    other = tmp_path / "other"
    (other / "one").mkdir(parents=True)
    (other / STAGED).write_bytes(b"in the way")
    return other


def test_a_file_on_another_device_is_copied(tree: Path, elsewhere: Path) -> None:
    result = link(tree, "sub/leaf.bin", elsewhere / "made", "one/carried")
    assert result == "copied" and type(result) is str
    assert (elsewhere / "made" / "one" / "carried").read_bytes() == b"leaf bytes"
    assert (tree / "sub" / "leaf.bin").stat().st_nlink == 1
    assert names_below(elsewhere) == ["made", "made/one", "made/one/carried"]


def test_a_name_that_is_taken_leads_to_a_copy(tree: Path, other: Path) -> None:
    assert link(tree, "file.bin", other, "one/carried") == "copied"
    assert (other / "one" / "carried").read_bytes() == b"outer bytes"
    assert (other / "one" / "carried").stat().st_ino != (tree / "file.bin").stat().st_ino
    # What stood at the name is taken for the function's own, and goes.
    assert names_below(other) == ["one", "one/carried"]


def test_the_copy_draws_a_token_of_its_own(
    tree: Path, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    asked = fix_token(monkeypatch, TOKEN, SECOND)
    other = tmp_path / "other"
    (other / "one").mkdir(parents=True)
    (other / STAGED).write_bytes(b"in the way")
    leftover = other / "one" / f"carried.{SECOND}.tmp"
    leftover.write_bytes(b"emptied and used by the copy")
    inode = leftover.stat().st_ino
    assert link(tree, "file.bin", other, "one/carried") == "copied"
    assert asked == [8, 8]
    assert (other / "one" / "carried").stat().st_ino == inode


def test_a_name_that_is_too_long_cannot_be_copied_either(tree: Path, tmp_path: Path) -> None:
    name = "n" * 250
    text_begins = f"contained update file is a symlink or is unsafe: {name}."
    with strays_closed(), pytest.raises(OSError) as raised:
        link(tree, "file.bin", tmp_path / "other", name)
    # The removal of the transfer name fails as well, in the copy and then in the link.
    chain: list[BaseException] = []
    error: BaseException | None = raised.value
    while error is not None:
        chain.append(error)
        error = error.__context__
    assert any(str(error).startswith(text_begins) for error in chain)
    assert names_below(tmp_path / "other") == []


def test_the_failure_of_the_copy_is_raised_while_that_of_the_link_is_handled(
    tree: Path, other: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    failure = LookupError("no copy")

    def copy(*args: Any) -> None:
        raise failure

    monkeypatch.setattr(client_manifest, "copy_contained_regular_file", copy)
    with fails_with(LookupError, "no copy") as caught:
        link(tree, "file.bin", other, "one/carried")
    assert caught.error is failure
    assert type(failure.__context__) is FileExistsError
    assert failure.__context__.__context__ is None
    assert names_below(other) == ["one"]


def test_a_refused_destination_is_told_by_the_copy(tree: Path, other: Path) -> None:
    (other / "one" / "carried").mkdir()
    text = "contained file destination is a symlink or non-regular file: one/carried"
    with fails_with(ValueError, text) as caught:
        link(tree, "file.bin", other, "one/carried")
    assert type(caught.error.__context__) is FileExistsError
    assert names_below(other) == ["one", "one/carried"]


def test_the_copy_is_given_the_roots_as_they_came(
    tree: Path, other: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    seen: list[Any] = []
    monkeypatch.setattr(
        client_manifest,
        "copy_contained_regular_file",
        lambda *args, **keywords: seen.append((args, keywords)),
    )
    roots = str(tree), str(other)
    assert link(roots[0], "file.bin", roots[1], "one/carried") == "copied"
    assert seen == [((roots[0], "file.bin", roots[1], "one/carried"), {})]
    assert seen[0][0][0] is roots[0] and seen[0][0][2] is roots[1]


def test_the_name_stays_taken_until_the_copy_is_done(
    tree: Path, other: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    copy = client_manifest.copy_contained_regular_file

    def look_and_copy(*args: Any) -> None:
        assert (other / STAGED).read_bytes() == b"in the way"
        copy(*args)
        assert (other / STAGED).read_bytes() == b"in the way"

    monkeypatch.setattr(client_manifest, "copy_contained_regular_file", look_and_copy)
    assert link(tree, "file.bin", other, "one/carried") == "copied"
    assert not (other / STAGED).exists()


@pytest.mark.parametrize(
    "make",
    [lambda path: path.mkdir(), lambda path: path.symlink_to("nowhere")],
    ids=["directory", "dangling link"],
)
def test_what_is_no_file_at_the_transfer_name_fails_the_removal_after_the_copy(
    make: Callable[[Path], None], tree: Path, other: Path
) -> None:
    (other / STAGED).unlink()
    make(other / STAGED)
    with strays_closed(), pytest.raises(ValueError) as raised:
        link(tree, "file.bin", other, "one/carried")
    assert str(raised.value) == f"contained removal file must be regular: {STAGED}"
    assert (other / "one" / "carried").read_bytes() == b"outer bytes"
    assert os.path.lexists(other / STAGED)


def test_a_replacement_that_fails_does_not_lead_to_a_copy(
    tree: Path, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    original: Any = client_manifest.PinnedRoot
    failure = OSError(18, "as if on another device")

    class Failing(original):  # type: ignore[misc]
        def replace_regular_file(self, *args: Any) -> None:
            assert (tree / "file.bin").stat().st_nlink == 2
            raise failure

    monkeypatch.setattr(client_manifest, "PinnedRoot", Failing)
    with fails_with(OSError, None) as caught:
        link(tree, "file.bin", tmp_path / "other", "one/carried")
    assert caught.error is failure
    assert names_below(tmp_path / "other") == ["one"]
    assert (tree / "file.bin").stat().st_nlink == 1


def test_only_the_link_is_guarded(tree: Path, tmp_path: Path, monkeypatch: Any) -> None:
    original: Any = client_manifest.PinnedRoot
    failure = OSError(18, "no parent")

    for label in ("contained link source", "contained link destination"):

        class Failing(original):  # type: ignore[misc]
            refused = label

            def _open_parent(self, path: str, *, label: str, create: bool) -> Any:
                if label == self.refused:
                    raise failure
                return super()._open_parent(path, label=label, create=create)

        monkeypatch.setattr(client_manifest, "PinnedRoot", Failing)
        with fails_with(OSError, None) as caught:
            link(tree, "file.bin", tmp_path / "other", "one/carried")
        assert caught.error is failure
        assert names_below(tmp_path / "other") == []
