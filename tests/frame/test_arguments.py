"""Proves that every operation takes exactly its parameters: any other shape is a TypeError."""

from __future__ import annotations

from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest
from brindlefen.distribution import client_manifest

from frame.operations import Operation, operation, operations, unmade
from frame.surface import CLASS_METHODS, METHODS, STATIC_METHODS
from frame.windows_surface import (
    BOUNDARY_METHODS,
    BOUNDARY_WITHOUT_INSTANCE,
    WINDOWS_ADDITIONS,
    WINDOWS_METHODS,
)
from support.failures import fails_with

STRANGE_KEYWORDS = ["unknown", "", "self", "\ud800", "LABEL", "label ", "labe", "label\0"]

OPERATIONS = list(operations())
every_operation = pytest.mark.parametrize("target", OPERATIONS, ids=lambda target: target.name)


def runs(call: Callable[..., object], *args: Any, **kwargs: Any) -> None:
    """Requires that the call gets past its arguments, whatever it then makes of them."""
    try:
        call(*args, **kwargs)
    except TypeError:
        raise
    except (AttributeError, NotImplementedError, OSError, ValueError):
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
            target.call(*target.by_position, **target.by_keyword, **target.arguments((name,)))


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
    ("kind", "method"),
    [
        *(
            ("_PosixPinnedRoot", name)
            for name in METHODS
            if name not in STATIC_METHODS | CLASS_METHODS
        ),
        *(
            ("_WindowsHandleFileSystem", name)
            for name in BOUNDARY_METHODS
            if name not in BOUNDARY_WITHOUT_INSTANCE
        ),
        *(("_WindowsPinnedRoot", name) for name in WINDOWS_METHODS),
    ],
)
def test_a_method_called_on_nothing_is_refused(kind: str, method: str) -> None:
    with fails_with(TypeError, None):
        getattr(getattr(client_manifest, kind), method)()


@pytest.mark.parametrize("method", WINDOWS_ADDITIONS)
def test_a_method_for_windows_is_refused_on_the_other_class(method: str) -> None:
    right = operation(method, print, WINDOWS_ADDITIONS[method])
    with fails_with(TypeError, None):
        getattr(client_manifest._WindowsPinnedRoot, method)(
            unmade(client_manifest._PosixPinnedRoot), *right.by_position, **right.by_keyword
        )


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
