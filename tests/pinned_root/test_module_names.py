"""The pinned root looks the module's own names up when it runs, so replaced ones are used."""

from __future__ import annotations

import hashlib
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from brindlefen.distribution.client_manifest import PinnedRoot
from pinned_root.disk import touch
from support.failures import fails_with

PATH = "sub/inner.bin"
DIGEST = hashlib.sha256(b"inner bytes").hexdigest()

OPERATIONS = {
    "open_regular_file_for_read": 1,
    "read_regular_file": 2,
    "read_regular_file_with_stat": 2,
    "read_regular_file_if_present": 2,
    "hash_regular_file": 4,
    "stat_regular_file": 2,
}


def run(root: PinnedRoot, operation: str, path: Any) -> Any:
    result = getattr(root, operation)(path, label="file")
    if operation == "open_regular_file_for_read":
        result.close()
    return result


@pytest.mark.parametrize("operation", OPERATIONS)
def test_the_path_rule_is_asked_at_each_step_and_its_result_is_walked(
    root: PinnedRoot, monkeypatch: pytest.MonkeyPatch, operation: str
) -> None:
    asked: list[object] = []

    def rule(path: object) -> str:
        asked.append(path)
        return PATH

    monkeypatch.setattr(client_manifest, "validate_manifest_relative_path", rule)
    run(root, operation, "an alias")
    assert asked == ["an alias"] + [PATH] * (OPERATIONS[operation] - 1)


def test_the_path_rule_is_asked_for_a_contained_root(
    root: PinnedRoot, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(
        client_manifest, "validate_manifest_relative_path", lambda path: "sub/deep"
    )
    with root.open_contained_root("an alias", label="child") as child:
        assert child.path == root.path / "sub" / "deep"
        assert child._anchor_components == ("sub", "deep")


@pytest.mark.parametrize("operation", OPERATIONS)
def test_a_failure_of_the_path_rule_passes_unchanged(
    root: PinnedRoot, monkeypatch: pytest.MonkeyPatch, operation: str
) -> None:
    gone = FileNotFoundError("by the rule")

    def rule(path: object) -> str:
        raise gone

    monkeypatch.setattr(client_manifest, "validate_manifest_relative_path", rule)
    if operation == "read_regular_file_if_present":
        assert run(root, operation, PATH) is None
        return
    with fails_with(FileNotFoundError, "by the rule") as caught:
        run(root, operation, PATH)
    assert caught.error is gone


def test_a_looser_stat_key_lets_a_touched_file_pass(
    tree: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    class Touching(PinnedRoot):
        def _assert_path_matches_regular_file(self, *args: Any, **keywords: Any) -> None:
            touch(tree / PATH)
            super()._assert_path_matches_regular_file(*args, **keywords)

    monkeypatch.setattr(
        client_manifest, "_regular_file_stat_key", lambda found: (found.st_size, 0, 0, 7, 8)
    )
    with Touching(tree) as root:
        assert root.read_regular_file(PATH, label="file") == b"inner bytes"
        identity = root.hash_regular_file(PATH, label="file")
    assert vars(identity) == {
        "size_bytes": 11,
        "sha256": DIGEST,
        "device": 7,
        "inode": 8,
        "mtime_ns": 0,
        "ctime_ns": 0,
    }


def test_a_stat_key_that_never_repeats_lets_nothing_pass(
    root: PinnedRoot, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(client_manifest, "_regular_file_stat_key", lambda found: object())
    with fails_with(ValueError, f"file changed while being read: {PATH}"):
        root.read_regular_file(PATH, label="file")
    with fails_with(ValueError, f"file changed while being hashed: {PATH}"):
        root.hash_regular_file(PATH, label="file")
    with fails_with(ValueError, f"file path identity changed while open: {PATH}"):
        root.stat_regular_file(PATH, label="file")


def test_a_failing_stat_key_leaves_nothing_open(
    root: PinnedRoot, monkeypatch: pytest.MonkeyPatch
) -> None:
    def key(found: object) -> object:
        raise KeyError("key")

    monkeypatch.setattr(client_manifest, "_regular_file_stat_key", key)
    for operation in ("read_regular_file", "hash_regular_file", "stat_regular_file"):
        with fails_with(KeyError, "'key'"):
            run(root, operation, PATH)


def test_the_reduction_to_nanoseconds_is_asked_by_the_key(
    root: PinnedRoot, monkeypatch: pytest.MonkeyPatch
) -> None:
    asked: list[str] = []

    def reduce(found: object, field: str) -> int:
        asked.append(field)
        return 77

    monkeypatch.setattr(client_manifest, "_stat_nanoseconds", reduce)
    identity = root.hash_regular_file(PATH, label="file")
    assert (identity.mtime_ns, identity.ctime_ns) == (77, 77)
    assert asked[:2] == ["st_mtime", "st_ctime"]


def test_the_record_is_built_by_keyword_from_the_modules_name(
    root: PinnedRoot, tree: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    found = (tree / PATH).stat()
    built: list[dict[str, Any]] = []

    class Record:
        def __init__(self, **fields: Any) -> None:
            built.append(fields)
            self.stat_key = tuple(
                fields[name] for name in ("size_bytes", "mtime_ns", "ctime_ns", "device", "inode")
            )

    monkeypatch.setattr(client_manifest, "ContainedFileIdentity", Record)
    identity: object = root.hash_regular_file(PATH, label="file")
    assert type(identity) is Record
    assert built == [
        {
            "size_bytes": 11,
            "sha256": DIGEST,
            "device": found.st_dev,
            "inode": found.st_ino,
            "mtime_ns": found.st_mtime_ns,
            "ctime_ns": found.st_ctime_ns,
        }
    ]


def test_a_record_that_cannot_be_built_leaves_nothing_open(
    root: PinnedRoot, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(client_manifest, "ContainedFileIdentity", None)
    with fails_with(TypeError, None):
        root.hash_regular_file(PATH, label="file")
