"""Proves that a load ends alike on the plain root class and on one that overrides everything."""

from __future__ import annotations

import os
import stat
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from support.distribution import (
    MEMBERS,
    OTHER_DIGEST,
    SIGNAL_PNL,
    STRATEGY_PNL,
    Distribution,
    empty_distribution,
    valid_distribution,
)

OPERATIONS = [
    "__init__",
    "__enter__",
    "__exit__",
    "close",
    "assert_root_unchanged",
    "open_contained_root",
    "read_regular_file",
    "read_regular_file_with_stat",
    "_read_open_regular_file_with_stat",
    "read_regular_file_if_present",
    "hash_regular_file",
    "hash_open_regular_file",
    "assert_open_regular_file_identity",
    "stat_regular_file",
    "open_regular_file_for_read",
    "_assert_path_matches_regular_file",
    "_open_parent",
    "_require_descriptor",
]


def overriding_class(called: set[str]) -> type:
    """A root class whose operations all note their name and hand on to the plain ones."""
    base = client_manifest.PinnedRoot

    def handing_on(name: str) -> Callable[..., Any]:
        def operate(self: Any, *arguments: Any, **keywords: Any) -> Any:
            called.add(name)
            return getattr(base, name)(self, *arguments, **keywords)

        return operate

    @classmethod  # type: ignore[misc]
    def open_absolute_directory(cls: Any, path: Path, *, create: bool) -> Any:
        called.add("_open_absolute_directory")
        return base._open_absolute_directory(path, create=create)

    @staticmethod  # type: ignore[misc]
    def open_directory_components(descriptor: int, components: Any, *, label: str) -> Any:
        called.add("_open_directory_components")
        return base._open_directory_components(descriptor, components, label=label)

    members: dict[str, Any] = {name: handing_on(name) for name in OPERATIONS}
    members["_open_absolute_directory"] = open_absolute_directory
    members["_open_directory_components"] = open_directory_components
    return type("PinnedRoot", (base,), members)


def described(error: BaseException | None) -> Any:
    """All of a failure and its causes that a caller can see."""
    if error is None:
        return None
    return (
        type(error),
        str(error),
        getattr(error, "errno", None),
        getattr(error, "filename", None),
        error.__suppress_context__,
        described(error.__cause__),
    )


def outcome(root: Path, **keywords: Any) -> Any:
    try:
        return client_manifest.load_accepted_distribution_set(root, **keywords)
    except Exception as error:
        return described(error)


def assert_routes_agree(root: Path, **keywords: Any) -> Any:
    """Loads on the plain class, on a bare subclass and on a class that overrides everything."""
    plain = outcome(root, **keywords)
    base = client_manifest.PinnedRoot
    for other in (type("Bare", (base,), {}), overriding_class(set())):
        with pytest.MonkeyPatch.context() as patch:
            patch.setattr(client_manifest, "PinnedRoot", other)
            assert outcome(root, **keywords) == plain
    return plain


def special(kind: int) -> Callable[[Path], None]:
    def become(path: Path) -> None:
        path.unlink()
        os.mknod(path, kind | 0o600)

    return become


def become_directory(path: Path) -> None:
    path.unlink()
    path.mkdir()


def become_link(path: Path) -> None:
    path.rename(path.parent / "aside")
    path.symlink_to("aside")


def lose_parent(path: Path) -> None:
    path.parent.rename(path.parent.parent / "aside")


def link_parent(path: Path) -> None:
    lose_parent(path)
    path.parent.symlink_to(path.parent.parent / "aside")


def file_as_parent(path: Path) -> None:
    lose_parent(path)
    path.parent.write_bytes(b"")


def with_a_newline(path: Path) -> None:
    path.write_bytes(path.read_bytes() + b"\n")


CHANGES: list[Callable[[Path], object]] = [
    Path.unlink,
    become_directory,
    become_link,
    special(stat.S_IFSOCK),
    lose_parent,
    link_parent,
    file_as_parent,
    lambda path: path.write_bytes(b""),
    with_a_newline,
    lambda path: path.write_bytes(path.read_bytes().upper()),
]


@pytest.mark.parametrize("which", ["manifest.json", "sidecar", SIGNAL_PNL, MEMBERS[-1]])
@pytest.mark.parametrize("change", CHANGES, ids=range(len(CHANGES)))
@pytest.mark.parametrize("supplied", [False, True])
def test_a_broken_tree_fails_alike(
    tmp_path: Path, which: str, change: Callable[[Path], object], supplied: bool
) -> None:
    distribution = valid_distribution()
    root = distribution.write(tmp_path / "root")
    change(root / (distribution.reference if which == "sidecar" else which))
    result = assert_routes_agree(root, manifest=distribution.manifest if supplied else None)
    # A manifest that is supplied is not read, and one more newline in the file is no fault; but
    # the parent of the manifest is the root itself.
    harmless = which == "manifest.json" and (supplied or change is with_a_newline)
    loads = harmless and change not in (lose_parent, link_parent, file_as_parent)
    assert isinstance(result, client_manifest.LoadedAcceptedDistributionSet) == loads


BROKEN: list[Callable[[Distribution], object]] = [
    lambda broken: broken.manifest.pop("signals_index"),
    lambda broken: broken.manifest.pop("files"),
    lambda broken: broken.manifest.update(found_signals=None),
    lambda broken: broken.manifest.update(market_id=True),
    lambda broken: broken.sidecar_entry.update(sha256=OTHER_DIGEST),
    lambda broken: broken.declare_sidecar(b"\xff"),
    lambda broken: broken.declare_sidecar(broken.sidecar + b"\n"),
    lambda broken: broken.files.pop(STRATEGY_PNL),
    lambda broken: broken.files[STRATEGY_PNL].update(kind="other"),
    lambda broken: broken.files[STRATEGY_PNL].update(size_bytes=-1),
    lambda broken: broken.files[STRATEGY_PNL].update(size_bytes=1),
    lambda broken: broken.files[STRATEGY_PNL].update(sha256=OTHER_DIGEST),
    lambda broken: broken.payloads.update({"signals_index.json": b""}),
]


@pytest.mark.parametrize("change", BROKEN, ids=range(len(BROKEN)))
def test_a_broken_distribution_fails_alike(
    tmp_path: Path, change: Callable[[Distribution], object]
) -> None:
    broken = valid_distribution()
    root = broken.write(tmp_path)
    change(broken)
    if "signals_index" in broken.manifest:
        broken.write(root)
    (root / "manifest.json").write_bytes(broken.manifest_bytes())
    result = assert_routes_agree(root)
    assert isinstance(result, tuple)


@pytest.mark.parametrize("build", [valid_distribution, empty_distribution])
def test_a_valid_distribution_loads_alike(
    tmp_path: Path, build: Callable[[], Distribution]
) -> None:
    result = assert_routes_agree(build().write(tmp_path))
    assert isinstance(result, client_manifest.LoadedAcceptedDistributionSet)


@pytest.mark.parametrize("name", ["absent", "file", "link", "absent/below", "file/below"])
def test_a_bad_root_fails_alike(tmp_path: Path, name: str) -> None:
    (tmp_path / "file").write_bytes(b"")
    (tmp_path / "link").symlink_to(tmp_path)
    assert isinstance(assert_routes_agree(tmp_path / name), tuple)


def test_every_operation_of_a_load_goes_through_the_instance(
    tmp_path: Path, monkeypatch: pytest.MonkeyPatch
) -> None:
    called: set[str] = set()
    monkeypatch.setattr(client_manifest, "PinnedRoot", overriding_class(called))
    client_manifest.load_accepted_distribution_set(valid_distribution().write(tmp_path))
    assert called == {*OPERATIONS, "_open_absolute_directory"} - {
        "open_contained_root",
        "stat_regular_file",
    }
