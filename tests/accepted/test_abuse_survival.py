"""Proves that objects which lie about themselves end a validation, and never the process."""

from __future__ import annotations

import gc
import weakref
from collections.abc import Callable, Iterator, Mapping
from pathlib import Path
from types import SimpleNamespace
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.distribution import (
    MEMBERS,
    SIGNAL_PNL,
    Distribution,
    canonical_bytes,
    index_document,
    sha256_of,
)

def survive(function: Callable[..., Any], *arguments: Any, **keywords: Any) -> Any:
    """Runs what may end either way, but not by a broken promise to the host."""
    try:
        return function(*arguments, **keywords)
    except SystemError:
        raise
    except Exception as error:
        return error
    finally:
        gc.collect()


def declare(manifest: Any) -> Any:
    return survive(client_manifest.validate_signals_index_manifest_declaration, manifest)


def references(document: Any) -> Any:
    return survive(client_manifest._membership_references, document)


def validate(distribution: Distribution, payloads: Any = None) -> Any:
    return survive(
        client_manifest.validate_accepted_distribution_set,
        distribution.manifest,
        distribution.sidecar,
        membership_payloads=payloads,
    )


def posing_as(kind: type) -> Any:
    """An object that every type test takes for a `kind`, and that is none."""
    return type("Posing", (), {"__class__": property(lambda self: kind)})()


def test_an_object_that_poses_as_a_manifest() -> None:
    assert isinstance(declare(posing_as(dict)), Exception)


def test_an_object_that_poses_as_files_or_as_an_entry(valid: Distribution) -> None:
    for change in ("entry", "member", "files"):
        broken = valid.copy()
        if change == "entry":
            broken.files[broken.reference] = posing_as(dict)
        elif change == "member":
            broken.files[SIGNAL_PNL] = posing_as(dict)
        else:
            broken.manifest["files"] = posing_as(dict)
        declare(broken.manifest)
        assert isinstance(validate(broken), Exception)


def test_an_object_that_poses_as_text(valid: Distribution) -> None:
    valid.manifest["signals_index"] = posing_as(str)
    assert isinstance(declare(valid.manifest), Exception)
    assert isinstance(
        references(index_document(found_signals={"a": {"files": [posing_as(str)]}})), Exception
    )
    survive(client_manifest._require_sha256, posing_as(str), relative_path="p")
    survive(client_manifest._found_pnl_path_section, posing_as(str))


def test_an_object_that_poses_as_a_number() -> None:
    survive(client_manifest._require_positive_identity, posing_as(int), label="l")
    survive(client_manifest._require_nonnegative_size, posing_as(int), relative_path="p")


def test_an_object_that_poses_as_bytes(valid: Distribution) -> None:
    valid.sidecar = posing_as(bytes)
    assert isinstance(validate(valid), Exception)


def test_an_object_that_poses_as_a_list_or_a_mapping() -> None:
    assert isinstance(
        references(index_document(found_signals={"a": {"files": posing_as(list)}})), Exception
    )
    assert isinstance(references(index_document(found_signals=posing_as(dict))), Exception)
    assert isinstance(references(index_document(found_signals={"a": posing_as(dict)})), Exception)


@pytest.mark.parametrize("items", [None, 5, [1], [()], [("a",)], [("a", {}, 3)], ["ab"], "x"])
def test_items_that_are_no_pairs(valid: Distribution, items: Any) -> None:
    class Odd(dict[Any, Any]):
        def items(self) -> Any:
            return items

    manifest = {**valid.manifest, "files": Odd(valid.files)}
    assert isinstance(declare(manifest), Exception)
    assert isinstance(references(index_document(found_signals=Odd())), Exception)


@pytest.mark.parametrize("victim", ["files", "manifest"])
@pytest.mark.parametrize("act", ["clear", "grow"])
@pytest.mark.parametrize("occasion", ["relative_path", "kind", "sha256", "size_bytes"])
def test_dicts_that_change_while_they_are_walked(
    valid: Distribution, victim: str, act: str, occasion: str
) -> None:
    target = valid.files if victim == "files" else valid.manifest

    class Meddling(dict[str, Any]):
        def get(self, key: str, default: Any = None) -> Any:
            found = super().get(key, default)
            if key == occasion:
                if act == "clear":
                    target.clear()
                else:
                    target.update({f"grown/{len(target)}": {}})
            gc.collect()
            return found

    valid.manifest["files"] = target if victim == "files" else valid.files
    for path in (valid.reference, SIGNAL_PNL):
        valid.files[path] = Meddling(valid.files[path])
    manifest = valid.manifest
    declare(manifest)
    survive(client_manifest.validate_accepted_distribution_set, manifest, valid.sidecar)


def test_a_comparison_that_takes_away_what_is_compared() -> None:
    manifest: dict[str, Any] = {}

    class Meddling:
        def __eq__(self, other: object) -> bool:
            manifest.clear()
            gc.collect()
            return False

    manifest["signals_index"] = Meddling()
    assert isinstance(declare(manifest), TypeError)


def test_a_list_that_empties_itself_while_it_is_walked() -> None:
    files: list[Any] = []

    class Meddling(str):
        def __hash__(self) -> int:
            files.clear()
            gc.collect()
            return super().__hash__()

    files.extend(Meddling(f"path {number}") for number in range(20))
    found = references(index_document(found_signals={"a": {"files": files}}))
    assert found == (("path 0", "found_signals"),)


def test_a_mapping_that_is_one_only_by_registration(valid: Distribution) -> None:
    @Mapping.register
    class Registered:
        pass

    assert isinstance(references(index_document(found_signals=Registered())), Exception)
    assert isinstance(
        references(index_document(found_signals={"a": Registered()})), Exception
    )
    assert isinstance(validate(valid, Registered()), Exception)


@pytest.mark.parametrize("keys", [[5], [None, "a"], [[]], [b"a", "a", 5], [*MEMBERS, 5, None]])
def test_payload_keys_that_are_no_paths(valid: Distribution, keys: list[Any]) -> None:
    class Payloads(Mapping[Any, Any]):
        def __getitem__(self, key: Any) -> Any:
            return b""

        def __iter__(self) -> Iterator[Any]:
            return iter(keys)

        def __len__(self) -> int:
            return -1

    assert isinstance(validate(valid, Payloads()), Exception)


@pytest.mark.parametrize("length", [-1, 0, 2**62, 2**70, "long"])
def test_bytes_that_lie_about_their_length(valid: Distribution, length: Any) -> None:
    class Lying(bytes):
        def __len__(self) -> int:
            return length  # type: ignore[no-any-return]

    validate(valid, {**valid.payloads, SIGNAL_PNL: Lying(valid.payloads[SIGNAL_PNL])})
    valid.sidecar = Lying(valid.sidecar)
    validate(valid)


@pytest.mark.parametrize("root", [None, 5, object(), b"bytes", "", "a\x00b", "\ud800", [], 1.5])
def test_roots_that_are_no_paths(root: Any) -> None:
    outcome = survive(client_manifest.load_accepted_distribution_set, root, manifest=[])
    assert isinstance(outcome, Exception)


@pytest.mark.parametrize("answer", [None, 5, "text", bytearray(b"{}"), [], {}])
def test_a_root_that_reads_no_bytes(monkeypatch: pytest.MonkeyPatch, answer: Any) -> None:
    class Root(client_manifest.PinnedRoot):
        def read_regular_file(self, relative_path: str, *, label: str) -> Any:
            return answer

    monkeypatch.setattr(client_manifest, "PinnedRoot", Root)
    with pytest.raises(TypeError, match="^manifest.json bytes must be bytes$"):
        client_manifest.load_accepted_distribution_set("/")


@pytest.mark.parametrize("identity", [None, 5, {}, SimpleNamespace(size_bytes=1)])
def test_a_root_that_hashes_to_no_identity(
    valid: Distribution, tmp_path: Path, monkeypatch: pytest.MonkeyPatch, identity: Any
) -> None:
    class Root(client_manifest.PinnedRoot):
        def hash_regular_file(  # type: ignore[override]
            self, relative_path: str, *, label: str
        ) -> Any:
            return identity

    monkeypatch.setattr(client_manifest, "PinnedRoot", Root)
    with pytest.raises(AttributeError):
        client_manifest.load_accepted_distribution_set(valid.write(tmp_path))


@pytest.mark.parametrize(
    "root_class",
    [
        None,
        5,
        object,
        lambda root: None,
        lambda: None,
        lambda root: [].missing,  # type: ignore[attr-defined]
    ],
)
def test_a_root_class_that_makes_no_roots(
    monkeypatch: pytest.MonkeyPatch, root_class: Any
) -> None:
    monkeypatch.setattr(client_manifest, "PinnedRoot", root_class)
    outcome = survive(client_manifest.load_accepted_distribution_set, "/")
    assert isinstance(outcome, Exception)


class Watched(dict[str, Any]):
    """A dict whose end can be seen."""


@pytest.mark.parametrize("field", ["none", "market_id", "signals_index", "files"])
def test_nothing_keeps_a_manifest_alive(valid: Distribution, field: str) -> None:
    manifest = Watched(valid.manifest)
    manifest.pop(field, None)
    seen = weakref.ref(manifest)
    outcome = survive(
        client_manifest.validate_accepted_distribution_set, manifest, valid.sidecar
    )
    assert isinstance(outcome, Exception) == (field != "none")
    del manifest, outcome
    gc.collect()
    assert seen() is None


def test_a_manifest_that_holds_itself(valid: Distribution) -> None:
    valid.files["inner"] = valid.manifest
    valid.manifest[5] = valid.manifest  # type: ignore[index]
    assert declare(valid.manifest) == valid.reference


def test_an_index_nested_as_deep_as_the_host_can_parse(valid: Distribution) -> None:
    nested = b"[" * 100_000 + b"]" * 100_000
    sidecar = canonical_bytes(valid.document).replace(b'"score": 1.5', b'"score": ' + nested)
    assert sha256_of(sidecar) != sha256_of(valid.sidecar)
    valid.declare_sidecar(sidecar)
    assert isinstance(validate(valid), RecursionError)
