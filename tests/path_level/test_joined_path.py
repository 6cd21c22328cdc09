"""Proves which text a write and a new directory give: the lexical path of what they made."""

from __future__ import annotations

import os
from pathlib import Path, PurePosixPath
from types import SimpleNamespace
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from path_level.members import CREATING, Member
from path_level.recording import Records, stand_in_roots

both = pytest.mark.parametrize("member", CREATING, ids=lambda member: member.function)


class Place:
    """A path-like value that is no path of the host's own."""

    def __init__(self, text: str) -> None:
        self.text = text

    def __fspath__(self) -> str:
        return self.text


@pytest.fixture
def records(monkeypatch: pytest.MonkeyPatch) -> Records:
    return stand_in_roots(monkeypatch)


def joined(member: Member, root: Any, path: Any) -> Any:
    return member.call(root, path, *member.args[1:])


@both
@pytest.mark.parametrize("path", ["leaf", "one/two/three", "sub/new", "a b/c:d", "ü/\udcff"])
def test_every_segment_is_joined_on_to_the_root(member: Member, path: str, tree: Path) -> None:
    text = joined(member, tree, path)
    assert type(text) is str
    assert text == f"{tree}/{path}"
    assert os.path.exists(text)


@both
def test_the_root_may_be_given_in_any_form(member: Member, tree: Path) -> None:
    text = str(tree)
    roots = [tree, text, Place(text), f"{text}/", f"{text}//", f"{text}/./sub/.."]
    for number, root in enumerate(roots):
        assert joined(member, root, f"new/{number}") == f"{tree}/new/{number}"


@both
def test_a_relative_root_is_made_absolute(
    member: Member, tree: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.chdir(tree)
    assert joined(member, "fresh", "leaf") == f"{tree}/fresh/leaf"
    assert joined(member, ".", "dot/leaf") == f"{tree}/dot/leaf"
    assert joined(member, "../tree/sub", "new") == f"{tree}/sub/new"


@both
def test_the_root_of_the_file_system_is_no_special_case(member: Member, tree: Path) -> None:
    path = str(tree / "new" / "leaf")
    assert joined(member, "/", path[1:]) == path


@both
def test_a_link_that_the_root_climbs_out_of_is_not_resolved(member: Member, tree: Path) -> None:
    (tree / "link").symlink_to("sub/deep")
    assert joined(member, tree / "link" / ".." / "made", "leaf") == f"{tree}/made/leaf"
    assert not (tree / "sub" / "made").exists()


@both
@pytest.mark.parametrize("form", [str, Path, PurePosixPath, Place])
def test_the_path_of_the_root_may_be_any_path(member: Member, form: Any, records: Records) -> None:
    records.results[0, "path"] = form("/else/where")
    assert joined(member, "root", "a/b") == "/else/where/a/b"
    assert records.names() == ["pin", "enter", member.operation, "prove", "path", "exit"]


@both
def test_a_relative_path_of_the_root_stays_so(member: Member, records: Records) -> None:
    records.results[0, "path"] = "else/"
    assert joined(member, "root", "a") == "else/a"


@both
def test_a_path_that_cannot_be_joined_fails_before_the_exit(
    member: Member, records: Records
) -> None:
    for number, path in enumerate([b"/bytes", 5]):
        records.results[number, "path"] = path
        with pytest.raises(TypeError) as raised:
            joined(member, "root", "a")
        assert records.names(number)[-2:] == ["path", "exit"]
        assert records.steps[-1].args[1] is raised.value


@both
def test_a_path_that_fails_to_be_read_passes_through_the_exit(
    member: Member, records: Records
) -> None:
    failure = records.failing[0, "path"] = LookupError("no path")
    with pytest.raises(LookupError) as raised:
        joined(member, "root", "a")
    assert raised.value is failure
    assert records.names()[-2:] == ["path", "exit"]


@both
def test_the_host_joins_the_path(
    member: Member, records: Records, monkeypatch: pytest.MonkeyPatch
) -> None:
    text, seen = object(), []

    def join(*parts: str) -> object:
        seen.append(parts)
        return text

    host = SimpleNamespace(
        fspath=lambda path: f"<{path}>", path=SimpleNamespace(join=join), name="posix"
    )
    monkeypatch.setattr(client_manifest, "os", host)
    assert joined(member, "root", "a/b/c") is text
    assert seen == [("</pinned/here>", "a", "b", "c")]
