"""A write publishes a whole new object at its path, or refuses before anything is staged."""

from __future__ import annotations

import secrets
from typing import Any

import pytest

from support.naming import named
from support.failures import fails_with
from windows.planted import (
    BAD_PATHS,
    CLOSED,
    DATA,
    FILES,
    PATH,
    TEMPORARY,
    Pin,
    at,
    directories,
    files,
    planted,
    staged,
    temporary_name,
)
from windows.volume import DIRECTORY, DIRECTORY_REPARSE, FILE_REPARSE, Volume

NO_BYTES = "contained file payload must be bytes"
EXISTS = "contained file already exists: {}"
REPARSE = "contained file destination is an unsafe reparse point: {}"
NO_FILE = "contained file destination must be a regular file: {}"
BAD_PARENT = "contained file destination has a non-directory or reparse parent: {}"
UNSAFE_PARENT = "contained directory is an unsafe reparse point: {}"


@pytest.fixture
def root(volume: Volume, pin: Pin) -> Any:
    more = {"link": FILE_REPARSE, "sub/junction": DIRECTORY_REPARSE, "sub/empty": DIRECTORY}
    return planted(volume, pin, more)


class Payload(bytes):
    """Bytes of a class of their own."""


PAYLOADS = {
    "bytes": b"new bytes",
    "empty": b"",
    "every byte": bytes(range(256)),
    "large": b"0123456789abcdef" * 200_000,
    "subclass": Payload(b"of a subclass"),
}


@pytest.mark.parametrize("allow", [True, False])
@pytest.mark.parametrize("path", ["new", "sub/new", "a/b/c/new", "sub/.hidden", "sub/é ü"])
def test_a_new_file_is_published_with_its_parents(
    root: Any, volume: Volume, path: str, allow: bool
) -> None:
    before = files(volume)
    assert root.write_atomic(path, b"payload", allow_replace=allow) is None
    assert files(volume) == {**before, path: b"payload"}
    assert staged(volume) == []


@pytest.mark.parametrize("payload", PAYLOADS.values(), ids=PAYLOADS)
@pytest.mark.parametrize("path", ["new", PATH])
def test_any_payload_replaces_all_that_was_there(
    root: Any, volume: Volume, path: str, payload: bytes
) -> None:
    before = files(volume)
    root.write_atomic(path, payload, allow_replace=True)
    assert files(volume) == {**before, path: bytes(payload)}


def test_the_published_file_is_another_object(root: Any, volume: Volume) -> None:
    before = volume.identity_of(at(PATH))
    held = root.open_regular_file_for_read(PATH, label="held")
    root.write_atomic(PATH, b"new bytes", allow_replace=True)
    assert volume.identity_of(at(PATH)) != before
    assert held.read() == FILES[PATH]
    held.close()


def test_the_temporary_name_is_of_the_leaf_the_process_and_the_thread(
    root: Any, boundary: Any, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(secrets, "token_hex", lambda count: f"token{count}")
    root.write_atomic(PATH, b"payload", allow_replace=True)
    opened = [call for call in boundary.calls if call.name == "open_regular"]
    assert opened[0].args[1] == temporary_name("inner.bin", "token8")


def test_no_two_writes_share_a_temporary_name(root: Any, boundary: Any) -> None:
    for _ in range(3):
        root.write_atomic("new", b"payload", allow_replace=True)
    names = [call.args[1] for call in boundary.calls if call.name == "open_regular"]
    temporary = [name for name in names if TEMPORARY.fullmatch(name)]
    assert len(set(temporary)) == 3


@pytest.mark.parametrize("allow", [True, False])
@pytest.mark.parametrize(
    ("path", "text"),
    [
        ("link", REPARSE),
        ("sub/junction", REPARSE),
        ("sub", NO_FILE),
        ("sub/empty", NO_FILE),
        ("file.bin/leaf", BAD_PARENT),
        ("link/leaf", BAD_PARENT),
        ("sub/junction/leaf", UNSAFE_PARENT),
        ("sub/junction/more/leaf", UNSAFE_PARENT),
    ],
)
def test_what_is_no_regular_file_is_never_replaced(
    root: Any, volume: Volume, boundary: Any, path: str, text: str, allow: bool
) -> None:
    before = volume.tree()
    cause = OSError if text is BAD_PARENT else None
    with fails_with(ValueError, text.format(path), cause=cause):
        root.write_atomic(path, b"payload", allow_replace=allow)
    assert volume.tree() == before
    assert "open_regular" not in boundary.names_called()


def test_an_existing_file_is_refused_before_anything_is_staged(
    root: Any, volume: Volume, boundary: Any
) -> None:
    before = volume.tree()
    with fails_with(FileExistsError, EXISTS.format(PATH)) as caught:
        root.write_atomic(PATH, b"payload", allow_replace=False)
    assert caught.error.__context__ is None
    assert volume.tree() == before
    assert "open_regular" not in boundary.names_called()


def test_parents_that_were_made_stay_when_the_staging_fails(
    root: Any, volume: Volume, boundary: Any
) -> None:
    before = files(volume)
    boundary.hook("open_regular", 1, raises=OSError(5, "no room"))
    with fails_with(OSError, "[Errno 5] no room"):
        root.write_atomic("a/b/leaf", b"payload", allow_replace=True)
    assert files(volume) == before
    assert {"a", "a/b"} <= directories(volume)


@pytest.mark.parametrize("payload", [bytearray(b"x"), memoryview(b"x"), "text", None, 5], ids=named)
def test_a_payload_that_is_not_bytes_is_refused(
    root: Any, volume: Volume, payload: object
) -> None:
    with fails_with(TypeError, NO_BYTES):
        root.write_atomic("a/b", payload, allow_replace=True)
    assert "a" not in directories(volume)


@pytest.mark.parametrize("case", BAD_PATHS)
def test_the_path_is_judged_before_the_payload(root: Any, boundary: Any, case: str) -> None:
    path, kind, text = BAD_PATHS[case]
    calls = len(boundary.calls)
    with fails_with(kind, text):
        root.write_atomic(path, None, allow_replace=True)
    assert len(boundary.calls) == calls


def test_path_and_payload_are_judged_before_the_root(root: Any) -> None:
    root.close()
    for path, payload, kind, text in [
        ("/bad", b"", ValueError, None),
        ("fine", None, TypeError, NO_BYTES),
        ("fine", b"", RuntimeError, CLOSED),
    ]:
        with fails_with(kind, text):
            root.write_atomic(path, payload, allow_replace=True)


@pytest.mark.parametrize("allow", [True, False, 1, 0, "", "yes", None], ids=named)
def test_any_true_value_allows_a_replacement(root: Any, volume: Volume, allow: object) -> None:
    if allow:
        root.write_atomic(PATH, b"payload", allow_replace=allow)
        assert volume.read(at(PATH)) == b"payload"
    else:
        with fails_with(FileExistsError, EXISTS.format(PATH)):
            root.write_atomic(PATH, b"payload", allow_replace=allow)
        assert volume.read(at(PATH)) == FILES[PATH]


def test_the_flag_has_to_be_given_by_name(root: Any) -> None:
    for arguments in [("a",), ("a", b""), ("a", b"", True)]:
        with pytest.raises(TypeError):
            root.write_atomic(*arguments)
    root.write_atomic(relative_path="a", payload=b"", allow_replace=False)


def test_a_contained_root_writes_below_itself(root: Any, volume: Volume) -> None:
    with root.open_contained_root("sub", label="sub") as contained:
        contained.write_atomic("made/new", b"payload", allow_replace=False)
        contained.write_atomic("inner.bin", b"replaced", allow_replace=True)
    assert volume.read(f"{DATA}/sub/made/new") == b"payload"
    assert volume.read(at(PATH)) == b"replaced"
