"""Whatever changes under a load, it gives the distribution as published, or a documented failure.

Each change is made before each call of the load in turn, and after the last.
"""

from __future__ import annotations

from pathlib import Path

import pytest
from brindlefen.distribution import client_manifest

from faults.injection import Change, Rename, armed
from faults.layout import MEMBERS, make_distribution
from faults.swaps import GROWTH, REPLACEMENT, SWAPS, Swap, Target, answers
from faults.trace import require_single_closes

MEMBER = min(MEMBERS)
LOADED = "result"


def _legacy_appears(target: Target) -> Change:
    (target.beside / "legacy").write_bytes(b"")
    return Rename(target.beside / "legacy", target.root / "signals_index.json")


LEGACY = Swap(_legacy_appears, frozenset({"legacy"}))

# The path (None: the sidecar), how messages call it, and how the load consumes it.
FILES: dict[str, tuple[str | None, str, str]] = {
    "a member": (MEMBER, "membership file", "hash"),
    "the sidecar": (None, "signals_index sidecar", "read"),
    "the manifest": ("manifest.json", "manifest.json", "read"),
}

# What a file draws when its change is seen by its own read, beside a load as published.
CASES: dict[tuple[str, str], set[str]] = {
    ("a member", "a parent becomes a link out"): {"parent"},
    ("a member", "a parent vanishes"): {"no parent"},
    ("a member", "the leaf becomes a link out"): {"unreadable", "became"},
    ("a member", "the leaf is another file"): {"other", "size"},
    ("a member", "the leaf vanishes"): {"missing", "gone"},
    ("a member", "the leaf is touched"): {"consumed", "reopened", "other"},
    ("a member", "the leaf grows"): {"consumed", "reopened", "other", "size"},
    ("the sidecar", "a parent becomes a link out"): {"parent"},
    ("the sidecar", "the leaf becomes a link out"): {"unreadable", "became"},
    ("the sidecar", "the leaf is another file"): {"other", "size"},
    ("the sidecar", "the leaf vanishes"): {"missing", "gone"},
    ("the sidecar", "the leaf grows"): {"consumed", "other", "size"},
    ("the manifest", "the leaf becomes a link out"): {"unreadable", "became"},
    ("the manifest", "the leaf becomes a directory"): {"irregular", "became"},
    ("the manifest", "the leaf vanishes"): {"missing", "gone"},
    ("the manifest", "the leaf is touched"): {"consumed", "other"},
    ("a member", "the root is a twin"): {"root swapped"},
    ("a member", "the root becomes a link"): {"root unsafe", "pin refused"},
    ("a member", "the root vanishes"): {"root unsafe", "pin missing"},
    ("a member", "the retired sidecar appears"): {"legacy"},
}


def _known_answers(target: Target, label: str, verb: str, size: int) -> dict[tuple[str, str], str]:
    sizes = {
        ("ValueError", f"manifest advertises {label} size {size}, but {target.path} is {n} bytes"):
        "size"
        for n in (len(REPLACEMENT), size + len(GROWTH))
    }  # fmt: skip
    pin = "pinned root is missing, has a symlinked ancestor, or is not a safe directory"
    return {
        **answers(label, target.path, verb),
        **sizes,
        ("ValueError", pin): "pin refused",
        ("FileNotFoundError", f"[Errno 2] No such file or directory: '{target.root.name}'"):
        "pin missing",
        ("ValueError", "legacy signals_index.json sidecar is not supported"): "legacy",
    }  # fmt: skip


@pytest.mark.parametrize(("file", "swap_name"), CASES)
def test_a_change_at_any_boundary_of_a_load_draws_the_published_set_or_its_own_failures(
    file: str, swap_name: str, tmp_path: Path
) -> None:
    clean = make_distribution(tmp_path / "clean")
    with armed() as shim:
        published = client_manifest.load_accepted_distribution_set(clean)
    last = len(shim.calls)
    swap = SWAPS.get(swap_name, LEGACY)
    path, label, verb = FILES[file]
    path = path or published.accepted.signals_index_path
    size = (clean / path).stat().st_size
    told = []
    for boundary in range(1, last + 2):
        target = Target(make_distribution(tmp_path / f"{boundary}"), path)
        target.prepare()
        change = swap.change(target)
        with armed() as shim:
            if boundary <= last:
                shim.before("any", boundary, change)
            else:
                shim.after("any", last, change)
            try:
                loaded = client_manifest.load_accepted_distribution_set(target.root)
                told.append(LOADED if loaded == published else f"another set: {loaded}")
            except Exception as error:
                key = type(error).__name__, str(error)
                told.append(_known_answers(target, label, verb, size).get(key, repr(error)))
        require_single_closes(shim.calls)
    expected = CASES[file, swap_name] | {LOADED}
    assert expected <= set(told) <= expected | swap.possible, sorted(set(told))
    assert told[-1] == LOADED
