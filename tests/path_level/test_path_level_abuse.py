"""Values that lie or raise end in a result or in their own failure, and leak nothing."""

from __future__ import annotations

import warnings
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from path_level.members import ENSURE, HASH, READ, REMOVE_TREE, WITH_A_PATH, WRITE, Member
from path_level.recording import stand_in_roots
from path_level.transfers import FUNCTIONS, strays_closed, transfer
from pinned_root.hostile import Own, raise_own
from pinned_root.outcomes import Failure, outcome_of
from support.descriptors import descriptors_kept
from support.failures import fails_with
from support.naming import named

METHODS = [
    ("__eq__", "__ne__", "__hash__"),
    ("__contains__", "__len__", "__iter__", "__getitem__"),
    ("strip", "startswith", "endswith"),
    ("split",),
    ("__format__", "__str__", "__repr__"),
    ("__bool__",),
    ("__add__", "__radd__", "join"),
    ("encode", "__fspath__"),
]
hostile_methods = pytest.mark.parametrize("methods", METHODS, ids=" ".join)


def hostile(base: type, *methods: str) -> Any:
    return type("Hostile", (base,), dict.fromkeys(methods, raise_own))


def holds(action: Any) -> Any:
    """Requires a result, or the failure of the hostile value; nothing may be left open."""
    with descriptors_kept():
        found = outcome_of(action)
    if isinstance(found, Failure):
        assert (found.kind, found.text) == (Own, "mine")
        return Own
    return found.value


@hostile_methods
@pytest.mark.parametrize(
    "member", [READ, HASH, WRITE, ENSURE, REMOVE_TREE], ids=lambda member: member.function
)
def test_hostile_relative_paths(member: Member, methods: tuple[str, ...], tree: Path) -> None:
    text = "sub" if member.operation == "remove_directory_tree" else "sub/leaf.bin"
    if member.creates:
        text = "new/leaf"
    path = hostile(str, *methods)(text)
    holds(lambda: member.call(tree, path, *member.args[1:]))


@hostile_methods
@pytest.mark.parametrize("function", FUNCTIONS)
def test_hostile_paths_of_a_transfer(
    function: str, methods: tuple[str, ...], tree: Path, tmp_path: Path
) -> None:
    text = hostile(str, *methods)
    arguments = [str(tree), "file.bin", str(tmp_path / "other"), "new/leaf"]
    for position, argument in enumerate(arguments):
        given: list[Any] = list(arguments)
        given[position] = text(argument)
        holds(lambda: transfer(function, *given))
        (tree / "file.bin").write_bytes(b"back again")


@hostile_methods
def test_hostile_whole_paths(methods: tuple[str, ...], tree: Path) -> None:
    path = hostile(str, *methods)(tree / "file.bin")
    holds(lambda: client_manifest.read_regular_file_path(path, label="f"))
    holds(lambda: client_manifest.hash_regular_file_path(path, label="f"))
    holds(lambda: client_manifest.write_regular_file_path(path, b"new"))


@hostile_methods
def test_hostile_paths_of_metadata(methods: tuple[str, ...], tree: Path) -> None:
    (tree / "manifest.json").write_bytes(b'{"version": 1, "market_id": 1, "era_number": 1}')
    path = hostile(str, *methods)(tree / "manifest.json")
    holds(lambda: client_manifest.manifest_metadata_from_path(path))
    data_dir = hostile(str, *methods)(tree)
    for requests in ({}, {"era_number": 1}, {"market_id": 1, "era_number": 1}):
        holds(lambda: client_manifest.local_client_manifest_metadata(data_dir, **requests))


@pytest.mark.parametrize("member", WITH_A_PATH, ids=lambda member: member.function)
def test_a_path_like_root_that_raises_passes_its_failure(member: Member) -> None:
    root = hostile(object, "__fspath__")()
    with descriptors_kept(), fails_with(Own, "mine"):
        member.call(root)


def test_a_path_like_value_that_raises_passes_its_failure() -> None:
    path = hostile(object, "__fspath__")()
    for action in (
        lambda: client_manifest.read_regular_file_path(path, label="f"),
        lambda: client_manifest.hash_regular_file_path(path, label="f"),
        lambda: client_manifest.write_regular_file_path(path, b""),
        lambda: client_manifest.manifest_metadata_from_path(path),
        lambda: client_manifest.local_client_manifest_metadata(path),
        lambda: transfer("move_contained_regular_file", path, "a", "b", "c"),
    ):
        with descriptors_kept(), fails_with(Own, "mine"):
            action()


@pytest.mark.parametrize("text", ["a\0b/leaf", "\ud800/leaf", "/" + "n" * 300 + "/leaf"])
def test_paths_that_the_system_cannot_take(text: str, tree: Path) -> None:
    for action in (
        lambda: client_manifest.read_regular_file_path(text, label="f"),
        lambda: client_manifest.hash_regular_file_path(text, label="f"),
        lambda: client_manifest.manifest_metadata_from_path(text),
    ):
        with descriptors_kept():
            found = outcome_of(action)
        assert isinstance(found, Failure) and issubclass(found.kind, (ValueError, OSError))


def test_a_data_directory_without_a_truth_passes_its_failure() -> None:
    for method in ("__bool__", "__len__"):
        with fails_with(Own, "mine"):
            client_manifest.local_client_manifest_metadata(hostile(object, method)())


def test_a_record_without_a_truth_passes_its_failure(monkeypatch: pytest.MonkeyPatch) -> None:
    record = hostile(object, "__bool__")()
    monkeypatch.setattr(client_manifest, "manifest_metadata_from_path", lambda path: record)
    with fails_with(Own, "mine"):
        client_manifest.local_client_manifest_metadata("data")


@pytest.mark.parametrize("method", ["__int__", "__index__", "__trunc__"])
def test_a_request_that_raises_passes_its_failure(method: str, tmp_path: Path) -> None:
    request = hostile(object, method)()
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", DeprecationWarning)
        for keywords in ({"market_id": request}, {"era_number": request}):
            with fails_with(Own, "mine"):
                client_manifest.local_client_manifest_metadata(tmp_path, **keywords)


def test_a_request_of_more_digits_than_the_host_writes_is_a_failure(tmp_path: Path) -> None:
    (tmp_path / "distribution" / "market_1").mkdir(parents=True)
    huge = 10**5000
    for keywords in (
        {"market_id": huge, "era_number": 1},
        {"market_id": 1, "era_number": huge},
        {"era_number": huge},
    ):
        with descriptors_kept():
            found = outcome_of(
                lambda: client_manifest.local_client_manifest_metadata(tmp_path, **keywords)
            )
        assert isinstance(found, Failure) and issubclass(found.kind, (ValueError, OSError))


class HostileInt(int):
    """An integer that raises when it is compared or put to use; it converts as the host says."""

    __lt__ = __le__ = __gt__ = __ge__ = __eq__ = __ne__ = __bool__ = raise_own
    __hash__ = None  # type: ignore[assignment]


def test_a_hostile_integer_is_converted_before_it_is_compared() -> None:
    assert holds(lambda: client_manifest.positive_manifest_int(HostileInt(5))) == 5


def test_a_value_that_lies_about_its_class_does_not_crash() -> None:
    for claimed in (bool, int, str, type(None)):
        value = type("Liar", (), {"__class__": claimed})()
        assert client_manifest.positive_manifest_int(value) is None
    with descriptors_kept():
        found = outcome_of(
            lambda: client_manifest.positive_manifest_int(
                type("Liar", (), {"__class__": property(raise_own)})()
            )
        )
    assert not isinstance(found, Failure) or found.kind is Own


class NoContext:
    """What stands in the place of the class, and cannot be entered."""


@pytest.mark.parametrize("stand_in", [None, 5, NoContext, lambda *a, **k: NoContext()], ids=named)
def test_a_module_without_a_good_class_fails_as_the_host_does(
    stand_in: Any, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr(client_manifest, "PinnedRoot", stand_in)
    for member in WITH_A_PATH:
        with fails_with(TypeError, None):
            member.call("/")
    for function in FUNCTIONS:
        with fails_with(TypeError, None):
            transfer(function, "/", "a", "/", "b")


@pytest.mark.parametrize("parent", [None, 5, (), (-1,), (-1, "a", "b"), "ab", [-1]], ids=named)
def test_a_parent_that_is_no_pair_does_not_crash(
    parent: Any, monkeypatch: pytest.MonkeyPatch
) -> None:
    records = stand_in_roots(monkeypatch)
    records.results[0, "_open_parent"] = parent
    with descriptors_kept():
        found = outcome_of(
            lambda: transfer("link_or_copy_contained_regular_file", "a", "a", "b", "b")
        )
    assert isinstance(found, Failure)
    assert records.names(0)[-1] == "exit"


@pytest.mark.parametrize("step", ["open_regular_file_for_read", "open_regular_file_for_update"])
@pytest.mark.parametrize("file", [None, 5, object(), "text"], ids=named)
def test_a_file_that_is_none_does_not_crash(
    step: str, file: Any, monkeypatch: pytest.MonkeyPatch
) -> None:
    records = stand_in_roots(monkeypatch)
    records.results[0, step] = records.results[1, step] = file
    with descriptors_kept():
        found = outcome_of(lambda: transfer("copy_contained_regular_file", "a", "a", "b", "b"))
    assert isinstance(found, Failure)
    assert records.order()[-3:] == [(1, "remove_regular_file"), (1, "exit"), (0, "exit")]


@pytest.mark.parametrize("token", [5, None, b"bytes", "a/../b", "/", "\0"], ids=named)
@pytest.mark.parametrize("function", FUNCTIONS[1:])
def test_a_token_that_is_none_does_not_crash(
    function: str, token: Any, tree: Path, tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    monkeypatch.setattr("secrets.token_hex", lambda size: token)
    with strays_closed():
        found = outcome_of(lambda: transfer(function, tree, "file.bin", tmp_path / "other", "leaf"))
    assert not isinstance(found, Failure) or issubclass(found.kind, (ValueError, TypeError))
    assert (tree / "file.bin").read_bytes() == b"outer bytes"
