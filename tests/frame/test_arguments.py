"""Proves that every operation takes exactly its parameters: any other shape is a TypeError."""

from __future__ import annotations

import os
from collections.abc import Callable, Iterator
from dataclasses import dataclass, fields
from pathlib import Path
from typing import Any

import pytest
from brindlefen.distribution import client_manifest

from frame.surface import CLASS_METHODS, FUNCTIONS, METHODS, STATIC_METHODS
from support.failures import fails_with

# No directory, nor one that could be made: the path goes on beneath a file.
NOWHERE = Path(__file__) / "no directory"

# A value for each parameter name. Whether it is a good one matters little: it must only not be
# refused by a TypeError, so that a TypeError can come from nothing but the shape of the call.
SAMPLES: dict[str, Any] = {
    "_exc": None,
    "_exc_type": None,
    "_traceback": None,
    "actual_sha": "0" * 64,
    "actual_size": 0,
    "allow_replace": False,
    "anchor_descriptor": -1,
    "chunk_bytes": 1,
    "components": (),
    "create": False,
    "data_dir": NOWHERE,
    "destination_relative_path": "a/b",
    "destination_root": NOWHERE,
    "document": {},
    "entry": {"size_bytes": 0, "sha256": "0" * 64},
    "era_number": 1,
    "expected_stat": os.stat("/"),
    "field": "st_mtime",
    "file": object(),
    "file_stat": os.stat("/"),
    "identity": object(),
    "label": "label",
    "manifest": {},
    "manifest_bytes": b"{}",
    "market_id": 1,
    "membership_payloads": None,
    "missing_ok": False,
    "name": "name",
    "pairs": [("key", 1)],
    "parent_descriptor": -1,
    "path": NOWHERE,
    "payload": b"{}",
    "platform_name": "posix",
    "prefixes": ("a",),
    "preserve_relative_paths": (),
    "relative_path": "a/b",
    "root": NOWHERE,
    "safe_path": "a/b",
    "signals_index_bytes": b"{}",
    "source_relative_path": "a/b",
    "source_root": NOWHERE,
    "suffix": ".tmp",
    "value": 1,
}

STRANGE_KEYWORDS = ["unknown", "", "self", "\ud800", "LABEL", "label ", "labe", "label\0"]


@dataclass(frozen=True)
class Operation:
    """One callable, and its parameters by kind."""

    name: str
    call: Callable[..., object]
    positional: tuple[str, ...]
    keyword_only: tuple[str, ...]
    optional: frozenset[str]

    def arguments(self, names: tuple[str, ...]) -> dict[str, Any]:
        return {name: SAMPLES.get(name) for name in names}

    @property
    def by_position(self) -> list[Any]:
        return list(self.arguments(self.positional).values())

    @property
    def by_keyword(self) -> dict[str, Any]:
        return self.arguments(self.keyword_only)

    @property
    def required(self) -> list[str]:
        return [name for name in self.all_names if name not in self.optional]

    @property
    def all_names(self) -> tuple[str, ...]:
        return self.positional + self.keyword_only


def operation(name: str, call: Callable[..., object], text: str) -> Operation:
    """Reads the parameters from a signature written as in `frame.surface`."""
    parts = [part.strip() for part in text.strip("()").split(",") if part.strip()]
    names = [part.partition("=")[0] for part in parts]
    star = names.index("*") if "*" in names else len(names)
    optional = frozenset(part.partition("=")[0] for part in parts if "=" in part)
    return Operation(name, call, tuple(names[:star]), tuple(names[star + 1 :]), optional)


def operations() -> Iterator[Operation]:
    kind = client_manifest.PinnedRoot
    for name, text in FUNCTIONS.items():
        yield operation(name, getattr(client_manifest, name), text)
    # An instance that pins nothing: a call of the right shape fails on its missing attributes.
    for name, text in METHODS.items():
        yield operation(f"PinnedRoot.{name}", getattr(kind.__new__(kind), name), text)
    yield operation("PinnedRoot", kind, METHODS["__init__"])
    for record in (
        client_manifest.AcceptedDistributionSet,
        client_manifest.LoadedAcceptedDistributionSet,
        client_manifest.ContainedFileIdentity,
    ):
        text = ", ".join(field.name for field in fields(record))
        yield operation(record.__name__, record, f"({text})")


OPERATIONS = list(operations())
every_operation = pytest.mark.parametrize("target", OPERATIONS, ids=lambda target: target.name)


def runs(call: Callable[..., object], *args: Any, **kwargs: Any) -> None:
    """Requires that the call gets past its arguments, whatever it then makes of them."""
    try:
        call(*args, **kwargs)
    except TypeError:
        raise
    except (AttributeError, OSError, ValueError):
        return


@every_operation
def test_the_right_shape_is_taken(target: Operation) -> None:
    runs(target.call, *target.by_position, **target.by_keyword)


@every_operation
def test_the_starless_parameters_may_be_given_by_keyword(target: Operation) -> None:
    runs(target.call, **target.arguments(target.all_names))


@every_operation
def test_the_order_of_keywords_is_free(target: Operation) -> None:
    backwards = tuple(reversed(target.all_names))
    runs(target.call, **target.arguments(backwards))


@every_operation
def test_a_parameter_with_a_default_may_be_left_out(target: Operation) -> None:
    runs(target.call, **target.arguments(tuple(target.required)))


@every_operation
def test_a_missing_argument_is_refused(target: Operation) -> None:
    for missing in target.required:
        given = tuple(name for name in target.all_names if name != missing)
        with fails_with(TypeError, None):
            target.call(**target.arguments(given))


@every_operation
def test_an_argument_too_many_is_refused(target: Operation) -> None:
    for surplus in (1, 2, 9):
        with fails_with(TypeError, None):
            target.call(*target.by_position, *[None] * surplus, **target.by_keyword)


@every_operation
def test_a_keyword_only_argument_by_position_is_refused(target: Operation) -> None:
    values = list(target.by_keyword.values())
    for count in range(1, len(values) + 1):
        rest = dict(list(target.by_keyword.items())[count:])
        with fails_with(TypeError, None):
            target.call(*target.by_position, *values[:count], **rest)


@every_operation
def test_an_argument_given_twice_is_refused(target: Operation) -> None:
    for name in target.positional:
        with fails_with(TypeError, None):
            target.call(*target.by_position, **target.by_keyword, **{name: SAMPLES.get(name)})


@every_operation
@pytest.mark.parametrize("keyword", STRANGE_KEYWORDS, ids=ascii)
def test_an_unknown_keyword_is_refused(target: Operation, keyword: str) -> None:
    with fails_with(TypeError, None):
        target.call(*target.by_position, **target.by_keyword, **{keyword: None})


@every_operation
def test_an_unknown_keyword_in_place_of_a_known_one_is_refused(target: Operation) -> None:
    for name in target.all_names:
        renamed = target.arguments(target.all_names)
        renamed[name + "_"] = renamed.pop(name)
        with fails_with(TypeError, None):
            target.call(**renamed)


def test_keywords_made_at_run_time_are_the_same_keywords() -> None:
    keyword = "".join(["la", "bel"])
    parse: Callable[..., object] = client_manifest.parse_strict_json_object_bytes
    assert parse(**{"".join(["pay", "load"]): b"{}", keyword: "x"}) == {}


@pytest.mark.parametrize(
    "method", [name for name in METHODS if name not in STATIC_METHODS | CLASS_METHODS]
)
def test_a_method_called_on_nothing_is_refused(method: str) -> None:
    with fails_with(TypeError, None):
        getattr(client_manifest.PinnedRoot, method)()


def test_a_refused_call_runs_nothing(monkeypatch: pytest.MonkeyPatch) -> None:
    reached: list[str] = []
    monkeypatch.setattr(
        client_manifest, "parse_strict_json_object_bytes", lambda *_, **__: reached.append("ran")
    )
    with fails_with(TypeError, None):
        client_manifest.parse_distribution_manifest_bytes(  # type: ignore[call-arg]
            b"{}", "manifest.json"
        )
    with fails_with(TypeError, None):
        client_manifest.parse_distribution_manifest_bytes(  # type: ignore[call-arg]
            b"{}", lable="manifest.json"
        )
    assert reached == []


@pytest.mark.parametrize(
    ("name", "arguments", "keywords"),
    [
        ("write_contained_regular_file", ("leaf", b"new", True), {}),
        ("write_contained_regular_file", ("leaf", b"new"), {"allow_replaced": True}),
        ("ensure_contained_directory", ("leaf", "more"), {}),
        ("remove_contained_regular_file", ("kept", True), {}),
        ("remove_contained_directory_tree", ("kept", True), {}),
        ("cleanup_contained_regular_files", ("kept", ()), {}),
        ("cleanup_contained_regular_files", (), {"suffix": "kept"}),
        ("cleanup_contained_regular_files_in_prefixes", (("a",), ()), {}),
        ("move_contained_regular_file", ("kept", "other"), {}),
        ("copy_contained_regular_file", ("kept", "other"), {}),
        ("link_or_copy_contained_regular_file", ("kept", "other"), {}),
    ],
)
@pytest.mark.parametrize("root", ["there", "absent"])
def test_a_refused_call_leaves_the_disk_alone(
    name: str,
    arguments: tuple[object, ...],
    keywords: dict[str, object],
    root: str,
    tmp_path: Path,
) -> None:
    file = tmp_path / "there" / "kept"
    file.parent.mkdir()
    file.touch()
    with fails_with(TypeError, None):
        getattr(client_manifest, name)(tmp_path / root, *arguments, **keywords)
    assert sorted(tmp_path.rglob("*")) == [file.parent, file]
