"""Proves that a declaration is asked for through the caller's own dict methods, step by step."""

from __future__ import annotations

from typing import Any

from brindlefen.distribution import client_manifest
from support.distribution import Distribution, file_entry
from support.failures import fails_with


class Scripted(dict[str, Any]):
    """An entry whose `kind` has another value at each look, the last one for good."""

    def __init__(self, fields: dict[str, Any], kinds: list[str]) -> None:
        super().__init__(fields)
        self.kinds = kinds

    def get(self, key: str, default: Any = None) -> Any:
        if key != "kind":
            return super().get(key, default)
        return self.kinds.pop(0) if len(self.kinds) > 1 else self.kinds[0]


class Noting(dict[str, Any]):
    """A dict that notes how it is asked."""

    def __init__(self, fields: dict[str, Any], name: str, asked: list[tuple[str, ...]]) -> None:
        super().__init__(fields)
        self.name = name
        self.asked = asked

    def get(self, key: str, *default: Any) -> Any:
        self.asked.append((self.name, "get", key))
        return super().get(key, *default)

    def __contains__(self, key: object) -> bool:
        self.asked.append((self.name, "in", str(key)))
        return super().__contains__(key)

    def items(self) -> Any:
        self.asked.append((self.name, "items"))
        return super().items()


def validate(manifest: Any) -> Any:
    return client_manifest.validate_signals_index_manifest_declaration(manifest)


def test_the_sole_entry_must_be_the_referenced_one(valid: Distribution) -> None:
    valid.files[valid.reference] = Scripted(valid.sidecar_entry, ["signals_index", "other"])
    valid.files["x"] = file_entry("x", b"", "signals_index")
    with fails_with(
        ValueError, "manifest signals_index must reference its sole signals_index file entry"
    ):
        validate(valid.manifest)


def test_the_sole_entry_may_stop_being_one_during_the_walk(valid: Distribution) -> None:
    valid.files[valid.reference] = Scripted(valid.sidecar_entry, ["signals_index", "other"])
    with fails_with(ValueError, "manifest must declare exactly one signals_index file entry"):
        validate(valid.manifest)


def test_the_kind_of_the_sole_entry_is_looked_at_again(valid: Distribution) -> None:
    valid.files[valid.reference] = Scripted(
        valid.sidecar_entry, ["signals_index", "signals_index", "other"]
    )
    with fails_with(
        ValueError, f'manifest files["{valid.reference}"].kind must be signals_index'
    ):
        validate(valid.manifest)


def test_the_path_is_compared_before_the_second_look_at_the_kind(valid: Distribution) -> None:
    entry = Scripted(
        {**valid.sidecar_entry, "relative_path": "x"}, ["signals_index", "signals_index", "other"]
    )
    valid.files[valid.reference] = entry
    with fails_with(
        ValueError,
        f'manifest files["{valid.reference}"].relative_path must be {valid.reference}',
    ):
        validate(valid.manifest)


def test_everything_is_asked_for_in_the_order_of_the_steps(valid: Distribution) -> None:
    asked: list[tuple[str, ...]] = []
    reference = valid.reference
    entry = Noting(valid.sidecar_entry, "entry", asked)
    files = Noting({reference: entry, "x": 5}, "files", asked)
    manifest = Noting({"signals_index": reference, "files": files}, "manifest", asked)
    assert validate(manifest) is reference
    assert asked == [
        ("manifest", "get", "signals_index"),
        ("manifest", "get", "files"),
        ("manifest", "in", "found_signals"),
        ("manifest", "in", "found_strategies"),
        ("manifest", "in", "useful_signals"),
        ("files", "get", reference),
        ("entry", "get", "kind"),
        ("files", "items"),
        ("entry", "get", "relative_path"),
        ("entry", "get", "kind"),
        ("entry", "get", "relative_path"),
        ("entry", "get", "kind"),
        ("entry", "get", "sha256"),
        ("entry", "get", "size_bytes"),
    ]


def test_a_reference_that_equals_everything_is_the_retired_one() -> None:
    class Everything:
        def __eq__(self, other: object) -> bool:
            return True

    with fails_with(ValueError, "legacy signals_index.json sidecar is not supported"):
        validate({"signals_index": Everything()})


def test_a_text_of_the_caller_is_returned_as_it_came(valid: Distribution) -> None:
    class Text(str):
        pass

    reference = Text(valid.reference)
    valid.manifest["signals_index"] = reference
    assert validate(valid.manifest) is reference
