"""Proves that a module whose names were replaced or removed fails, and never ends the process."""

from __future__ import annotations

import gc
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.distribution import Distribution

FUNCTIONS = [
    "validate_manifest_relative_path",
    "parse_strict_json_object_bytes",
    "parse_distribution_manifest_bytes",
    "parse_canonical_signals_index_bytes",
    "_require_positive_identity",
    "_require_nonnegative_size",
    "_require_sha256",
    "_validate_entry_bytes",
    "_validate_entry_digest",
    "validate_signals_index_manifest_declaration",
    "_found_pnl_path_section",
    "_membership_references",
    "validate_accepted_distribution_set",
    "_stat_nanoseconds",
    "_regular_file_stat_key",
]
VALUES = [
    "_SIGNALS_INDEX_SECTIONS",
    "_LEGACY_SIGNALS_INDEX_PATH",
    "_SIGNALS_INDEX_PATH_RE",
    "_SHA256_RE",
    "AcceptedDistributionSet",
    "LoadedAcceptedDistributionSet",
    "ContainedFileIdentity",
    "Mapping",
    "PinnedRoot",
]


@pytest.mark.parametrize("replacement", [None, 5, lambda *a, **k: None, ...], ids=range(4))
@pytest.mark.parametrize("name", [*FUNCTIONS, *VALUES])
def test_a_module_with_any_name_replaced_or_gone(
    valid: Distribution,
    tmp_path: Path,
    monkeypatch: pytest.MonkeyPatch,
    name: str,
    replacement: Any,
) -> None:
    operations: list[Callable[..., object]] = [
        client_manifest.load_accepted_distribution_set,
        client_manifest.validate_accepted_distribution_set,
        client_manifest.validate_signals_index_manifest_declaration,
        client_manifest._membership_references,
    ]
    valid.write(tmp_path)
    if replacement is ...:
        monkeypatch.delattr(client_manifest, name)
    else:
        monkeypatch.setattr(client_manifest, name, replacement)
    arguments: list[tuple[Any, ...]] = [
        (tmp_path,),
        (valid.manifest, valid.sidecar),
        (valid.manifest,),
        (valid.document,),
    ]
    for operation, given in zip(operations, arguments, strict=True):
        try:
            operation(*given)
        except SystemError:
            raise
        except Exception:
            # Any failure of the host will do: what counts is that it is an ordinary one.
            continue
        finally:
            gc.collect()
