"""Each operation calls its own parts through the instance, in fixed order and fixed form."""

from __future__ import annotations

from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from pinned_root.hostile import Own, raise_own
from windows.part_calls import OPERATIONS, recording_class
from windows.planted import FILES, PATH, Pin, at, files, planted
from windows.substitute import SubstituteBoundary
from windows.volume import Volume

EACH = pytest.mark.parametrize("name", OPERATIONS)


@pytest.fixture
def inner(volume: Volume) -> None:
    """Only the one file in its directory."""
    volume.plant({at(PATH): FILES[PATH]})


@EACH
def test_the_parts_are_called_through_the_instance(
    inner: None, boundary: SubstituteBoundary, name: str
) -> None:
    kind = recording_class()
    root = kind("C:\\data", _boundary=boundary)
    kind.noted.clear()
    action, expected = OPERATIONS[name]
    action(root)
    assert kind.noted == expected
    root.close()


@EACH
def test_a_part_that_fails_ends_the_operation_in_its_own_words(
    inner: None, volume: Volume, boundary: SubstituteBoundary, name: str
) -> None:
    action, expected = OPERATIONS[name]
    for part in {noted[0] for noted in expected}:
        root: Any = client_manifest._WindowsPinnedRoot("C:\\data", _boundary=boundary)
        held = volume.open_handles
        setattr(root, part, raise_own)
        with pytest.raises(Own):
            action(root)
        assert volume.open_handles == held
        root.close()
        if not volume.exists(at(PATH)):
            volume.plant({at(PATH): FILES[PATH]})


@pytest.mark.parametrize("name", [name for name in OPERATIONS if name != "names"])
def test_the_judge_of_paths_is_the_modules_own_name(
    volume: Volume, pin: Pin, monkeypatch: pytest.MonkeyPatch, name: str
) -> None:
    root = planted(volume, pin)
    monkeypatch.setattr(client_manifest, "validate_manifest_relative_path", raise_own)
    action, _ = OPERATIONS[name]
    if name == "suffix":
        assert action(root) == (PATH,)
        with pytest.raises(Own):
            root.remove_regular_files_with_suffix("x", preserve_relative_paths={"any"})
        return
    with pytest.raises(Own):
        action(root)


def test_what_the_judge_gives_is_what_is_used(
    volume: Volume, pin: Pin, monkeypatch: pytest.MonkeyPatch
) -> None:
    root = planted(volume, pin)
    monkeypatch.setattr(
        client_manifest, "validate_manifest_relative_path", lambda path: f"sub/{path}"
    )
    root.write_atomic("new", b"new", allow_replace=False)
    root.replace_regular_file("new", "newer")
    root.move_regular_file_to("newer", root, "newest")
    root.open_regular_file_for_update("newest", create=False).close()
    assert list(root._pending_update_identities) == ["sub/newest"]
    assert set(files(volume)) == {*FILES, "sub/newest"}
    assert root.remove_regular_file("newest", missing_ok=False) is True
    assert root._pending_update_identities == {}
    root.ensure_directory("made")
    assert root.remove_directory_tree("made", missing_ok=False) is True
    assert set(files(volume)) == set(FILES)


def test_the_temporary_name_asks_the_modules_own_names(
    volume: Volume, pin: Pin, boundary: SubstituteBoundary, monkeypatch: pytest.MonkeyPatch
) -> None:
    class Secrets:
        @staticmethod
        def token_hex(count: int) -> str:
            return f"token of {count}"

    root = planted(volume, pin)
    monkeypatch.setattr(client_manifest, "secrets", Secrets)
    root.write_atomic("new", b"new", allow_replace=False)
    opened = [call.args[1] for call in boundary.calls if call.name == "open_regular"]
    assert opened[0].startswith(".new.") and opened[0].endswith(".token of 8.tmp")
