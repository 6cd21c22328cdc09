"""Proves that a root that was swapped during the operation takes the result with it."""

from __future__ import annotations

from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from path_level.members import CREATING, MEMBERS, Member
from pinned_root.disk import move_away, swap_for_copy, swap_for_link
from support.failures import fails_with

ANOTHER = "pinned root canonical path changed during operation"
UNSAFE = "pinned root canonical path changed or became unsafe during operation"

every_member = pytest.mark.parametrize("member", MEMBERS, ids=lambda member: member.function)
swaps = pytest.mark.parametrize(
    ("swap", "text", "cause", "proves"),
    [
        (swap_for_copy, ANOTHER, None, True),
        (swap_for_copy, ANOTHER, None, False),
        (move_away, UNSAFE, FileNotFoundError, False),
        (swap_for_link, UNSAFE, ValueError, False),
    ],
    ids=["copy, exit proves", "copy", "nothing", "link"],
)


def install(
    monkeypatch: pytest.MonkeyPatch, member: Member, after: Callable[[], object], proves: bool
) -> list[Any]:
    """Puts a root in place whose operation ends with `after`; gives the roots that were pinned.

    Without `proves`, leaving the context only closes, so that a failure of the proof can come
    from nothing but the function.
    """
    original = client_manifest.PinnedRoot
    pinned: list[Any] = []

    class Swapping(original):  # type: ignore[misc, valid-type]
        def __enter__(self) -> Any:
            pinned.append(self)
            return super().__enter__()

        def __exit__(self, *details: Any) -> None:
            if proves:
                super().__exit__(*details)
            else:
                self.close()

    def operation(self: Any, *args: Any, **keywords: Any) -> Any:
        result = getattr(original, member.operation)(self, *args, **keywords)
        after()
        return result

    setattr(Swapping, member.operation, operation)
    monkeypatch.setattr(client_manifest, "PinnedRoot", Swapping)
    return pinned


def prepared(member: Member, tree: Path) -> Member:
    """The member with a path that is good for it on the tree."""
    if member.operation == "remove_directory_tree":
        return member._replace(args=("sub",))
    if member.creates:
        return member._replace(args=("new/leaf", *member.args[1:]))
    return member


@swaps
@every_member
def test_a_swapped_root_is_found_and_closed(
    member: Member,
    swap: Callable[[Path], Path],
    text: str,
    cause: type[BaseException] | None,
    proves: bool,
    tree: Path,
    monkeypatch: pytest.MonkeyPatch,
) -> None:
    roots = install(monkeypatch, member, lambda: swap(tree), proves)
    with fails_with(ValueError, text, cause=cause) as caught:
        prepared(member, tree).call(tree)
    assert [root._descriptor for root in roots] == [None]
    if proves and cause is None:
        # Leaving the context has found it again, on top of the proof of the function.
        assert str(caught.error.__context__) == text


@every_member
def test_a_root_that_is_put_back_in_time_is_not_missed(
    member: Member, tree: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    def swap_and_put_back() -> None:
        aside = swap_for_copy(tree)
        move_away(tree)
        aside.rename(tree)

    install(monkeypatch, member, swap_and_put_back, proves=True)
    prepared(member, tree).call(tree)


@pytest.mark.parametrize("member", CREATING, ids=lambda member: member.function)
def test_what_was_done_beneath_a_swapped_root_stays_done(
    member: Member, tree: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    asides: list[Path] = []
    install(monkeypatch, member, lambda: asides.append(move_away(tree)), proves=True)
    with fails_with(ValueError, UNSAFE, cause=FileNotFoundError):
        prepared(member, tree).call(tree)
    assert (asides[0] / "new" / "leaf").exists()
    assert not tree.exists()


def test_a_removal_beneath_a_swapped_root_stays_done(
    tree: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    member = next(m for m in MEMBERS if m.operation == "remove_regular_file")
    asides: list[Path] = []
    install(monkeypatch, member, lambda: asides.append(swap_for_copy(tree)), proves=True)
    with fails_with(ValueError, ANOTHER):
        member.call(tree)
    assert not (asides[0] / "sub" / "leaf.bin").exists()
