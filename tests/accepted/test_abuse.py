"""Proves that objects which raise in the hands of a validator pass their own failure on."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.distribution import SIGNAL_PNL, Distribution, index_document


class Refusal(Exception):
    """What every hostile object raises."""


def refuse(*arguments: Any, **keywords: Any) -> Any:
    raise Refusal


class Incomparable:
    """A value that does not let itself be compared."""

    __eq__ = __ne__ = refuse
    __hash__ = object.__hash__


class Undecided:
    """A value whose comparisons have no truth."""

    class Answer:
        __bool__ = refuse

    def __eq__(self, other: object) -> Any:
        return self.Answer()

    def __ne__(self, other: object) -> Any:
        return self.Answer()


class Unformatted(str):
    """A text that cannot be put in a message."""

    __format__ = __str__ = refuse


class Unhashable(str):
    """A text that cannot be looked up."""

    __hash__ = refuse


class Unshown(str):
    """A text without a repr."""

    __repr__ = refuse


class Unsorted(str):
    """A text that cannot be brought into an order."""

    __lt__ = __gt__ = __le__ = __ge__ = refuse


def refusing_dict(method: str, content: dict[Any, Any]) -> Any:
    """A dict of the same content, one method of which raises."""
    return type("Refusing", (dict,), {method: refuse})(content)


def declare(manifest: Any) -> Any:
    return client_manifest.validate_signals_index_manifest_declaration(manifest)


def validate(distribution: Distribution, payloads: Any = None) -> Any:
    return client_manifest.validate_accepted_distribution_set(
        distribution.manifest, distribution.sidecar, membership_payloads=payloads
    )


@pytest.mark.parametrize("method", ["get", "__contains__"])
def test_a_manifest_that_raises(valid: Distribution, method: str) -> None:
    with pytest.raises(Refusal):
        declare(refusing_dict(method, valid.manifest))


@pytest.mark.parametrize("method", ["get", "items"])
def test_files_that_raise(valid: Distribution, method: str) -> None:
    valid.manifest["files"] = refusing_dict(method, valid.files)
    with pytest.raises(Refusal):
        declare(valid.manifest)


def test_a_lookup_of_the_manifest_that_raises(valid: Distribution) -> None:
    with pytest.raises(Refusal):
        client_manifest.validate_accepted_distribution_set(
            refusing_dict("__getitem__", valid.manifest), valid.sidecar
        )


def test_a_lookup_of_files_that_raises(valid: Distribution) -> None:
    valid.manifest["files"] = refusing_dict("__getitem__", valid.files)
    with pytest.raises(Refusal):
        validate(valid)


def test_an_entry_that_raises(valid: Distribution) -> None:
    valid.files["other"] = refusing_dict("get", {})
    with pytest.raises(Refusal):
        declare(valid.manifest)


@pytest.mark.parametrize("hostile", [Incomparable, Undecided])
def test_a_reference_that_cannot_be_compared(hostile: Callable[[], Any]) -> None:
    with pytest.raises(Refusal):
        declare({"signals_index": hostile()})


@pytest.mark.parametrize("hostile", [Incomparable, Undecided])
@pytest.mark.parametrize("field", ["kind", "relative_path"])
@pytest.mark.parametrize("which", ["sidecar", "other", SIGNAL_PNL])
def test_a_field_of_an_entry_that_cannot_be_compared(
    valid: Distribution, hostile: Callable[[], Any], field: str, which: str
) -> None:
    valid.files.setdefault("other", {})
    valid.files[valid.reference if which == "sidecar" else which][field] = hostile()
    with pytest.raises(Refusal):
        declare(valid.manifest)


def test_a_reference_that_cannot_be_written(valid: Distribution) -> None:
    valid.manifest["signals_index"] = Unformatted(valid.reference)
    valid.manifest["files"] = {}
    with pytest.raises(Refusal):
        declare(valid.manifest)


def test_a_reference_that_cannot_be_looked_up(valid: Distribution) -> None:
    valid.manifest["signals_index"] = Unhashable(valid.reference)
    with pytest.raises(Refusal):
        declare(valid.manifest)


@pytest.mark.parametrize(
    "section",
    [
        refusing_dict("items", {}),
        {"a": refusing_dict("get", {})},
        {Unformatted("a"): []},
        {Unformatted("a"): {"files": None}},
        {Unformatted("a"): {"files": ["x"]}},
        {"a": {"files": [Unhashable("x")]}},
        {"a": {"files": ["x", Unshown("x")]}},
        {"a": {"files": [Unsorted("x"), Unsorted("y"), Unsorted("z")]}},
    ],
    ids=range(8),
)
def test_memberships_that_raise(section: Any) -> None:
    with pytest.raises(Refusal):
        client_manifest._membership_references(index_document(found_signals=section))


def test_a_document_that_raises() -> None:
    with pytest.raises(Refusal):
        client_manifest._membership_references(refusing_dict("get", index_document()))


@pytest.mark.parametrize("method", ["__iter__", "__getitem__"])
def test_payloads_that_raise(valid: Distribution, method: str) -> None:
    with pytest.raises(Refusal):
        validate(valid, refusing_dict(method, dict(valid.payloads)))


@pytest.mark.parametrize("name", ["st_size", "st_mtime_ns", "st_ctime_ns", "st_dev", "st_ino"])
def test_a_stat_result_that_raises(name: str) -> None:
    numbers = dict.fromkeys(["st_size", "st_mtime_ns", "st_ctime_ns", "st_dev", "st_ino"], 1)
    for hostile in (property(refuse), type("Number", (), {"__int__": refuse})()):
        file_stat = type("Stat", (), {**numbers, name: hostile})()
        with pytest.raises(Refusal):
            client_manifest._regular_file_stat_key(file_stat)


def test_a_root_path_that_raises() -> None:
    class Root:
        __fspath__ = refuse

    with pytest.raises(Refusal):
        client_manifest.load_accepted_distribution_set(Root(), manifest={})


def test_a_manifest_that_asks_for_its_own_validation_ends_in_the_limit_of_the_host() -> None:
    class Manifest(dict[str, Any]):
        def get(self, key: str, default: Any = None) -> Any:
            return declare(self)

    with pytest.raises(RecursionError):
        declare(Manifest())
