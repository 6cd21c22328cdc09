"""Proves which fault of a distribution on disk reports when it has two at once."""

from __future__ import annotations

from collections.abc import Callable
from itertools import combinations
from pathlib import Path
from typing import Any, NamedTuple

import pytest

from brindlefen.distribution import client_manifest
from support.distribution import MEMBERS, Distribution, valid_distribution
from support.failures import fails_with

LEGACY = "legacy signals_index.json sidecar is not supported"


class Fault(NamedTuple):
    """One fault on disk, applied to the written tree.

    In the message `{reference}` stands for the sidecar's path, `{size}` for its advertised
    size and `{last}` for the advertised size of the last member.
    """

    name: str
    apply: Callable[[Path, Distribution], object]
    message: str
    kind: type[Exception] = ValueError
    cause: type[Exception] | None = None


def replaced(path: str, content: bytes) -> Callable[[Path, Distribution], object]:
    return lambda root, distribution: (root / path).write_bytes(content)


def changed_manifest(**fields: Any) -> Callable[[Path, Distribution], object]:
    def apply(root: Path, distribution: Distribution) -> None:
        distribution.manifest.update(fields)
        (root / "manifest.json").write_bytes(distribution.manifest_bytes())

    return apply


def without_sidecar(root: Path, distribution: Distribution) -> None:
    next((root / "_control").iterdir()).unlink()


def with_emptied_sidecar(root: Path, distribution: Distribution) -> None:
    (root / "_control" / Path(distribution.reference).name).write_bytes(b"")


# In the order of the steps; the faults are applied from the last to the first.
FAULTS = [
    Fault(
        "no manifest",
        lambda root, distribution: (root / "manifest.json").unlink(),
        "manifest.json is missing: manifest.json",
        FileNotFoundError,
        FileNotFoundError,
    ),
    Fault(
        "corrupt manifest",
        replaced("manifest.json", b"{"),
        "manifest.json is not valid JSON",
        client_manifest.ManifestJsonError,
        client_manifest.StrictJsonError,
    ),
    Fault("retired sidecar", replaced("signals_index.json", b""), LEGACY),
    Fault(
        "inline section",
        changed_manifest(found_signals=None),
        "manifest contains legacy inline signals_index membership: found_signals",
    ),
    Fault(
        "no sidecar",
        without_sidecar,
        "signals_index sidecar is missing: {reference}",
        FileNotFoundError,
        FileNotFoundError,
    ),
    Fault(
        "emptied sidecar",
        with_emptied_sidecar,
        "manifest advertises signals_index sidecar size {size}, but {reference} is 0 bytes",
    ),
    Fault(
        "another market",
        changed_manifest(market_id=99),
        "signals_index sidecar market_id must match manifest market_id",
    ),
    Fault(
        "first member",
        replaced(MEMBERS[0], b"!"),
        f"manifest advertises membership file size 0, but {MEMBERS[0]} is 1 bytes",
    ),
    Fault(
        "last member",
        replaced(MEMBERS[-1], b""),
        f"manifest advertises membership file size {{last}}, but {MEMBERS[-1]} is 0 bytes",
    ),
]
EXCLUSIVE = ("no manifest", "corrupt manifest")
PAIRS = [pair for pair in combinations(FAULTS, 2) if (pair[0].name, pair[1].name) != EXCLUSIVE]


def expect(fault: Fault, root: Path, distribution: Distribution) -> None:
    message = fault.message.replace("{reference}", distribution.reference)
    message = message.replace("{size}", str(len(distribution.sidecar)))
    message = message.replace("{last}", str(len(distribution.payloads[MEMBERS[-1]])))
    with fails_with(fault.kind, message, cause=fault.cause):
        client_manifest.load_accepted_distribution_set(root)


@pytest.mark.parametrize("fault", FAULTS, ids=lambda fault: fault.name)
def test_each_fault_reports_when_it_is_alone(fault: Fault, tmp_path: Path) -> None:
    distribution = valid_distribution()
    fault.apply(distribution.write(tmp_path), distribution)
    expect(fault, tmp_path, distribution)


@pytest.mark.parametrize(("first", "second"), PAIRS, ids=lambda fault: fault.name)
def test_of_two_faults_the_earlier_step_reports(
    first: Fault, second: Fault, tmp_path: Path
) -> None:
    distribution = valid_distribution()
    root = distribution.write(tmp_path)
    second.apply(root, distribution)
    first.apply(root, distribution)
    expect(first, root, distribution)


def test_a_bad_root_reports_before_a_bad_manifest(tmp_path: Path) -> None:
    with fails_with(FileNotFoundError, None):
        client_manifest.load_accepted_distribution_set(
            tmp_path / "absent",
            manifest=[],  # type: ignore[arg-type]
        )


def test_a_supplied_manifest_is_judged_before_the_retired_sidecar(tmp_path: Path) -> None:
    (tmp_path / "signals_index.json").write_bytes(b"")
    with fails_with(TypeError, "manifest must be a dict"):
        client_manifest.load_accepted_distribution_set(
            tmp_path,
            manifest=[],  # type: ignore[arg-type]
        )
    with fails_with(ValueError, LEGACY):
        client_manifest.load_accepted_distribution_set(tmp_path, manifest={})


def test_a_bad_root_that_is_a_file_reports_before_a_bad_manifest(tmp_path: Path) -> None:
    (tmp_path / "file").write_bytes(b"")
    with fails_with(
        ValueError,
        "pinned root is missing, has a symlinked ancestor, or is not a safe directory",
        cause=NotADirectoryError,
    ):
        client_manifest.load_accepted_distribution_set(
            tmp_path / "file",
            manifest=[],  # type: ignore[arg-type]
        )
