"""Proves how the memberships of a signals index become sorted references, or fail."""

from __future__ import annotations

from collections import OrderedDict, UserDict
from types import MappingProxyType
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.distribution import index_document
from support.failures import fails_with

SECTIONS = ["found_signals", "found_strategies", "useful_signals"]
EXACT_PATH = "manifest relative path must be an exact relative POSIX path"
NOT_TEXT = "manifest relative path must be a string"


def references(document: Any) -> Any:
    return client_manifest._membership_references(document)


def duplicate(path: str, first: str, second: str) -> str:
    return f"signals_index contains duplicate membership path {path} in {first} and {second}"


def test_empty_sections_have_no_references() -> None:
    assert references(index_document()) == ()


@pytest.mark.parametrize("membership", [{}, {"files": []}, {"other": ["a"]}])
def test_a_membership_without_files_has_no_references(membership: dict[str, Any]) -> None:
    assert references(index_document(found_signals={"a": membership})) == ()


def test_references_carry_their_section_and_are_sorted_by_path() -> None:
    document = index_document(
        found_signals={"z": {"files": ["z", "m/b"]}, "a": {"files": ["k"]}},
        found_strategies={"y": {"files": ["m/a"]}},
        useful_signals={"x": {"files": ["a", "m"]}},
    )
    assert references(document) == (
        ("a", "useful_signals"),
        ("k", "found_signals"),
        ("m", "useful_signals"),
        ("m/a", "found_strategies"),
        ("m/b", "found_signals"),
        ("z", "found_signals"),
    )


def test_paths_are_sorted_by_code_point() -> None:
    ordered = ["Z", "a", "a b", "a/b", "a0", "é", "\ue000", "\uffff", "\U00010000"]
    document = index_document(useful_signals={"x": {"files": ordered[::-1]}})
    assert [path for path, _ in references(document)] == ordered


def test_the_result_is_a_tuple_of_pairs() -> None:
    found = references(index_document(found_signals={"a": {"files": ["x"]}}))
    assert type(found) is tuple
    assert type(found[0]) is tuple


@pytest.mark.parametrize("kind", [dict, OrderedDict, UserDict, MappingProxyType])
def test_sections_and_memberships_may_be_any_mapping(kind: Any) -> None:
    document = index_document(found_signals=kind({"a": kind({"files": ["x"]}), "b": kind({})}))
    assert references(kind(document)) == (("x", "found_signals"),)


@pytest.mark.parametrize("section", SECTIONS)
@pytest.mark.parametrize("value", [..., None, [], "text", 5, {"a"}])
def test_a_section_must_be_an_object(section: str, value: Any) -> None:
    document = index_document()
    document[section] = value
    if value is ...:
        del document[section]
    with fails_with(ValueError, f"signals_index {section} must be an object") as caught:
        references(document)
    assert caught.error.__context__ is None


@pytest.mark.parametrize("section", SECTIONS)
@pytest.mark.parametrize("value", [None, [], "text", 5, ["x"]])
def test_a_membership_must_be_an_object(section: str, value: Any) -> None:
    document = index_document(**{section: {"fine": {}, "odd": value}})
    with fails_with(ValueError, f"signals_index {section}.odd must be an object"):
        references(document)


@pytest.mark.parametrize("section", SECTIONS)
@pytest.mark.parametrize("value", [None, {}, "text", 5, ("x",), False])
def test_files_must_be_a_list(section: str, value: Any) -> None:
    document = index_document(**{section: {"fine": {}, "odd": {"files": value}}})
    with fails_with(ValueError, f"signals_index {section}.odd.files must be a list"):
        references(document)


def test_a_list_of_the_caller_is_a_list() -> None:
    class Files(list[str]):
        pass

    document = index_document(found_signals={"a": {"files": Files(["x"])}})
    assert references(document) == (("x", "found_signals"),)


@pytest.mark.parametrize(
    ("path", "kind", "message"),
    [
        (None, TypeError, NOT_TEXT),
        (5, TypeError, NOT_TEXT),
        (["x"], TypeError, NOT_TEXT),
        (b"x", TypeError, NOT_TEXT),
        ("", ValueError, EXACT_PATH),
        ("/x", ValueError, EXACT_PATH),
        ("x\n", ValueError, EXACT_PATH),
    ],
)
def test_every_path_is_judged(path: Any, kind: type[Exception], message: str) -> None:
    with fails_with(kind, message):
        references(index_document(useful_signals={"a": {"files": ["fine", path]}}))


def test_a_path_listed_twice_by_one_entity_is_refused() -> None:
    document = index_document(found_signals={"a": {"files": ["x", "y", "x"]}})
    with fails_with(ValueError, duplicate("'x'", "found_signals.a", "found_signals.a")):
        references(document)


def test_a_path_listed_by_two_entities_is_refused() -> None:
    document = index_document(useful_signals={"b": {"files": ["x"]}, "a": {"files": ["x"]}})
    with fails_with(ValueError, duplicate("'x'", "useful_signals.b", "useful_signals.a")):
        references(document)


def test_a_path_listed_in_two_sections_is_refused() -> None:
    document = {
        "useful_signals": {"a": {"files": ["x"]}},
        "found_strategies": {},
        "found_signals": {"a": {"files": ["x"]}},
    }
    with fails_with(ValueError, duplicate("'x'", "found_signals.a", "useful_signals.a")):
        references(document)


@pytest.mark.parametrize(
    ("path", "shown"),
    [
        ("it's", '"it\'s"'),
        ("a\nb", "'a\\nb'"),
        ("é", "'é'"),
        ("\ud800", "'\\ud800'"),
        ("{0}%s", "'{0}%s'"),
        ('both\'"', "'both\\'\"'"),
    ],
)
def test_a_duplicate_path_is_shown_in_its_repr(path: str, shown: str) -> None:
    document = index_document(found_signals={"a": {"files": [path, path]}})
    with fails_with(ValueError, duplicate(shown, "found_signals.a", "found_signals.a")):
        references(document)


@pytest.mark.parametrize("entity", ["", "{x}", "%s", "a.b", "\ud800", 5, None, (1, 2)])
def test_an_entity_is_named_by_its_plain_text(entity: Any) -> None:
    owner = "found_strategies." + str(entity)
    with fails_with(ValueError, f"signals_index {owner} must be an object"):
        references(index_document(found_strategies={entity: []}))
    with fails_with(ValueError, f"signals_index {owner}.files must be a list"):
        references(index_document(found_strategies={entity: {"files": None}}))
    with fails_with(ValueError, duplicate("'x'", owner, owner)):
        references(index_document(found_strategies={entity: {"files": ["x", "x"]}}))


@pytest.mark.parametrize(
    ("document", "message"),
    [
        (
            {"found_signals": {"a": []}, "found_strategies": [], "useful_signals": {}},
            "signals_index found_signals.a must be an object",
        ),
        (
            {"found_signals": {}, "found_strategies": [], "useful_signals": []},
            "signals_index found_strategies must be an object",
        ),
        (
            {"found_signals": {"b": {"files": {}}, "a": []}},
            "signals_index found_signals.b.files must be a list",
        ),
        ({"found_signals": {"b": {"files": ["/x"]}, "a": []}}, EXACT_PATH),
        ({"found_signals": {"b": {"files": ["x", "/x", "x"]}}}, EXACT_PATH),
        (
            {"found_signals": {"b": {"files": ["x", "x", "/x"]}}},
            duplicate("'x'", "found_signals.b", "found_signals.b"),
        ),
        ({"found_signals": {"b": {"files": ["/x"]}}, "found_strategies": None}, EXACT_PATH),
    ],
)
def test_the_first_fault_of_the_walk_reports(document: dict[str, Any], message: str) -> None:
    with fails_with(ValueError, message):
        references(document)


def test_only_the_three_sections_are_walked() -> None:
    assert references({**index_document(), "other_section": []}) == ()


def test_the_sections_and_functions_of_the_module_decide(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(client_manifest, "_SIGNALS_INDEX_SECTIONS", ("other", "another"))
    monkeypatch.setattr(
        client_manifest, "validate_manifest_relative_path", lambda path: path.strip("/")
    )
    document = {"another": {"a": {"files": ["/y/"]}}, "other": {"b": {"files": ["x/"]}}}
    assert references(document) == (("x", "other"), ("y", "another"))


def test_the_mapping_type_of_the_module_decides(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(client_manifest, "Mapping", list)
    with fails_with(ValueError, "signals_index found_signals must be an object"):
        references(index_document(found_signals=UserDict()))


def test_a_membership_is_asked_for_files_with_an_empty_list_as_default() -> None:
    asked: list[tuple[Any, ...]] = []

    class Membership(dict[str, Any]):
        def get(self, *arguments: Any) -> Any:
            asked.append(arguments)
            return ["x"]

    document = index_document(found_signals={"a": Membership()})
    assert references(document) == (("x", "found_signals"),)
    assert asked == [("files", [])]
