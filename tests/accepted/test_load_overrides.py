"""Proves that a load uses the root class and the functions that stand in the module."""

from __future__ import annotations

from pathlib import Path
from types import SimpleNamespace
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.distribution import (
    MEMBERS,
    OTHER_DIGEST,
    SIGNAL_PNL,
    Distribution,
    empty_distribution,
    sha256_of,
)
from support.failures import fails_with

ROOT = object()


class RecordedRoot:
    """A root that serves a distribution from memory and notes each call."""

    def __init__(self, distribution: Distribution) -> None:
        self.contents = {
            "manifest.json": distribution.manifest_bytes(),
            distribution.reference: distribution.sidecar,
        }
        self.payloads = dict(distribution.payloads)
        self.events: list[tuple[Any, ...]] = []
        self.failing: dict[str, BaseException] = {}

    def note(self, name: str, *details: Any) -> None:
        self.events.append((name, *details))
        if name in self.failing:
            raise self.failing[name]

    def pin(self, *arguments: Any, **keywords: Any) -> RecordedRoot:
        self.note("pin", arguments, keywords)
        return self

    def __enter__(self) -> RecordedRoot:
        self.note("enter")
        return self

    def __exit__(self, *details: Any) -> None:
        self.note("exit", *details)

    def read_regular_file(self, *arguments: Any, **keywords: Any) -> bytes:
        self.note("read", arguments, keywords)
        return self.contents[arguments[0]]

    def read_regular_file_if_present(self, *arguments: Any, **keywords: Any) -> bytes | None:
        self.note("read if present", arguments, keywords)
        return self.contents.get(arguments[0])

    def hash_regular_file(self, *arguments: Any, **keywords: Any) -> SimpleNamespace:
        self.note("hash", arguments, keywords)
        payload = self.payloads[arguments[0]]
        return SimpleNamespace(size_bytes=len(payload), sha256=sha256_of(payload))

    def assert_root_unchanged(self, *arguments: Any, **keywords: Any) -> None:
        self.note("prove", arguments, keywords)

    def names(self) -> list[str]:
        return [event[0] for event in self.events]


@pytest.fixture
def root(valid: Distribution, monkeypatch: pytest.MonkeyPatch) -> RecordedRoot:
    recorded = RecordedRoot(valid)
    monkeypatch.setattr(client_manifest, "PinnedRoot", recorded.pin)
    return recorded


def load(**keywords: Any) -> Any:
    root: Any = ROOT
    return client_manifest.load_accepted_distribution_set(root, **keywords)


def steps_behind_the_manifest(distribution: Distribution) -> list[tuple[Any, ...]]:
    return [
        ("read if present", ("signals_index.json",), {"label": "legacy signals_index.json"}),
        ("read", (distribution.reference,), {"label": "signals_index sidecar"}),
        *[("hash", (path,), {"label": "membership file"}) for path in MEMBERS],
        ("prove", (), {}),
        ("exit", None, None, None),
    ]


def test_the_root_is_used_in_exactly_these_steps(valid: Distribution, root: RecordedRoot) -> None:
    loaded = load()
    assert loaded.manifest_bytes is root.contents["manifest.json"]
    assert loaded.signals_index_bytes is root.contents[valid.reference]
    assert root.events == [
        ("pin", (ROOT,), {}),
        ("enter",),
        ("read", ("manifest.json",), {"label": "manifest.json"}),
        *steps_behind_the_manifest(valid),
    ]


def test_a_supplied_manifest_saves_its_read(valid: Distribution, root: RecordedRoot) -> None:
    load(manifest=valid.manifest)
    assert root.events == [
        ("pin", (ROOT,), {}),
        ("enter",),
        *steps_behind_the_manifest(valid),
    ]


def test_without_members_the_root_is_still_proved(monkeypatch: pytest.MonkeyPatch) -> None:
    recorded = RecordedRoot(empty_distribution())
    monkeypatch.setattr(client_manifest, "PinnedRoot", recorded.pin)
    load()
    assert recorded.names()[-3:] == ["read", "prove", "exit"]


def test_a_root_that_cannot_be_pinned_is_never_entered(root: RecordedRoot) -> None:
    root.failing["pin"] = ValueError("no root")
    with fails_with(ValueError, "no root"):
        load(manifest=[])
    assert root.names() == ["pin"]


@pytest.mark.parametrize("failure", [ValueError("no"), OSError(5, "no"), KeyboardInterrupt("no")])
@pytest.mark.parametrize("step", ["read", "read if present", "hash", "prove"])
def test_a_failing_step_passes_its_own_failure_through_the_exit(
    root: RecordedRoot, step: str, failure: BaseException
) -> None:
    root.failing[step] = failure
    with pytest.raises(type(failure)) as raised:
        load()
    assert raised.value is failure
    assert root.names()[-2:] == [step, "exit"]
    kind, error, traceback = root.events[-1][1:]
    assert kind is type(failure)
    assert error is failure
    assert traceback is not None


def test_a_judgement_in_memory_passes_through_the_exit_too(root: RecordedRoot) -> None:
    with fails_with(TypeError, "manifest must be a dict") as caught:
        load(manifest=[])
    assert root.names() == ["pin", "enter", "exit"]
    assert root.events[-1][1:3] == (TypeError, caught.error)


def test_a_failing_exit_replaces_the_return(root: RecordedRoot) -> None:
    root.failing["exit"] = ValueError("root is another")
    with fails_with(ValueError, "root is another"):
        load()
    assert root.names()[-2:] == ["prove", "exit"]


def test_a_failing_exit_replaces_the_failure_of_a_step(root: RecordedRoot) -> None:
    root.failing["hash"] = LookupError("step")
    root.failing["exit"] = ValueError("exit")
    with pytest.raises(ValueError, match="^exit$") as raised:
        load()
    assert raised.value.__context__ is root.failing["hash"]


def test_any_file_at_the_retired_path_ends_the_load(root: RecordedRoot) -> None:
    root.contents["signals_index.json"] = b""
    with fails_with(ValueError, "legacy signals_index.json sidecar is not supported"):
        load()
    assert root.names() == ["pin", "enter", "read", "read if present", "exit"]


def test_the_first_bad_member_ends_the_load(root: RecordedRoot) -> None:
    root.payloads[MEMBERS[1]] += b"!"
    root.payloads[MEMBERS[2]] += b"!"
    with pytest.raises(ValueError, match=MEMBERS[1]):
        load()
    hashed = [event[1][0] for event in root.events if event[0] == "hash"]
    assert hashed == list(MEMBERS[:2])
    assert root.names()[-2:] == ["hash", "exit"]


def test_the_operations_of_an_instance_are_honoured(
    valid: Distribution, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    original = client_manifest.PinnedRoot

    def pin(root: Any) -> Any:
        pinned: Any = original(root)
        pinned.hash_regular_file = lambda path, *, label: SimpleNamespace(
            size_bytes=valid.files[path]["size_bytes"], sha256=OTHER_DIGEST
        )
        return pinned

    monkeypatch.setattr(client_manifest, "PinnedRoot", pin)
    valid.write(tmp_path)
    with pytest.raises(ValueError, match=f"but {MEMBERS[0]} is {OTHER_DIGEST}$"):
        client_manifest.load_accepted_distribution_set(tmp_path)


def test_the_functions_of_the_module_are_called_in_order(
    valid: Distribution, root: RecordedRoot, monkeypatch: pytest.MonkeyPatch
) -> None:
    def noting(name: str) -> Any:
        original = getattr(client_manifest, name)

        def note(*arguments: Any, **keywords: Any) -> Any:
            root.events.append((name, arguments, keywords))
            return original(*arguments, **keywords)

        return note

    for name in (
        "parse_distribution_manifest_bytes",
        "validate_signals_index_manifest_declaration",
        "validate_accepted_distribution_set",
    ):
        monkeypatch.setattr(client_manifest, name, noting(name))
    loaded = load()
    manifest = loaded.manifest
    assert root.events[2:9] == [
        ("read", ("manifest.json",), {"label": "manifest.json"}),
        (
            "parse_distribution_manifest_bytes",
            (root.contents["manifest.json"],),
            {"label": "manifest.json"},
        ),
        ("read if present", ("signals_index.json",), {"label": "legacy signals_index.json"}),
        ("validate_signals_index_manifest_declaration", (manifest,), {}),
        ("read", (valid.reference,), {"label": "signals_index sidecar"}),
        ("validate_accepted_distribution_set", (manifest, valid.sidecar), {}),
        # The set validation asks for the declaration again.
        ("validate_signals_index_manifest_declaration", (manifest,), {}),
    ]
    assert root.events[5][1][0] is manifest


def test_each_measured_member_goes_to_the_digest_check(
    valid: Distribution, root: RecordedRoot, monkeypatch: pytest.MonkeyPatch
) -> None:
    accepted = SimpleNamespace(membership_paths=(SIGNAL_PNL, MEMBERS[0]))
    seen: list[Any] = []
    monkeypatch.setattr(
        client_manifest, "validate_accepted_distribution_set", lambda *_: accepted
    )
    monkeypatch.setattr(
        client_manifest, "_validate_entry_digest", lambda *a, **k: seen.append((*a, k))
    )
    assert load().accepted is accepted
    assert seen == [
        (
            valid.files[path],
            {
                "relative_path": path,
                "actual_size": len(valid.payloads[path]),
                "actual_sha": sha256_of(valid.payloads[path]),
                "label": "membership file",
            },
        )
        for path in accepted.membership_paths
    ]


def test_the_declared_path_is_the_one_that_is_read(
    root: RecordedRoot, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(
        client_manifest, "validate_signals_index_manifest_declaration", lambda _: "elsewhere"
    )
    monkeypatch.setattr(
        client_manifest,
        "validate_accepted_distribution_set",
        lambda manifest, sidecar: SimpleNamespace(membership_paths=()),
    )
    root.contents["elsewhere"] = b"sidecar"
    assert load().signals_index_bytes == b"sidecar"
    assert ("read", ("elsewhere",), {"label": "signals_index sidecar"}) in root.events


def test_the_retired_path_of_the_module_is_looked_for(
    root: RecordedRoot, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(client_manifest, "_LEGACY_SIGNALS_INDEX_PATH", "retired")
    load()
    assert root.events[3] == (
        "read if present",
        ("retired",),
        {"label": "legacy signals_index.json"},
    )


def test_the_record_is_made_inside_the_pin_by_the_class_in_the_module(
    valid: Distribution, root: RecordedRoot, monkeypatch: pytest.MonkeyPatch
) -> None:
    def record(
        manifest: Any, manifest_bytes: Any, signals_index_bytes: Any, accepted: Any
    ) -> tuple[Any, ...]:
        root.note("record")
        return manifest, manifest_bytes, signals_index_bytes, accepted.membership_paths

    monkeypatch.setattr(client_manifest, "LoadedAcceptedDistributionSet", record)
    assert load() == (valid.manifest, valid.manifest_bytes(), valid.sidecar, MEMBERS)
    assert root.names()[-3:] == ["prove", "record", "exit"]
