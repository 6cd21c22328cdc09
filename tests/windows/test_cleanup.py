"""Each cleanup removes exactly the regular files that its selector picks, and names them."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

from brindlefen.distribution import client_manifest
from support.failures import fails_with
from windows.planted import BAD_PATHS, CLOSED, EXACT, Pin, at, files, planted
from windows.substitute import SubstituteBoundary
from windows.volume import DIRECTORY, Volume

BAD_SUFFIX = "contained cleanup suffix must be a non-empty filename suffix"


def by_suffix(root: Any, suffix: Any, preserved: Any = ()) -> Any:
    return root.remove_regular_files_with_suffix(suffix, preserve_relative_paths=preserved)


def by_prefix(root: Any, prefixes: Any, preserved: Any = ()) -> Any:
    return root.remove_regular_files_in_prefixes(prefixes, preserve_relative_paths=preserved)


@pytest.fixture
def root(volume: Volume, pin: Pin) -> Any:
    return planted(volume, pin, {"sub/named.bin/kept.txt": b"kept", "sub/.hidden.bin": b"hidden"})


@pytest.mark.parametrize(
    ("suffix", "removed"),
    [
        (".bin", ("file.bin", "sub/.hidden.bin", "sub/deep/leaf.bin", "sub/inner.bin")),
        ("n", ("file.bin", "sub/.hidden.bin", "sub/deep/leaf.bin", "sub/inner.bin")),
        ("inner.bin", ("sub/inner.bin",)),
        ("txt", ("sub/named.bin/kept.txt",)),
        (".BIN", ()),
        (".none", ()),
    ],
)
def test_files_whose_name_ends_so_go_from_the_whole_tree(
    root: Any, volume: Volume, suffix: str, removed: tuple[str, ...]
) -> None:
    before = volume.tree("data")
    result = by_suffix(root, suffix)
    assert result == removed and type(result) is tuple
    assert volume.tree("data") == {
        path: found for path, found in before.items() if path not in removed
    }


@pytest.mark.parametrize(
    ("prefixes", "removed"),
    [
        (("sub",), ("sub/deep/leaf.bin", "sub/inner.bin", "sub/named.bin/kept.txt")),
        (("sub/",), ("sub/deep/leaf.bin", "sub/inner.bin", "sub/named.bin/kept.txt")),
        (("sub/deep///",), ("sub/deep/leaf.bin",)),
        (("sub/deep", "sub/named.bin"), ("sub/deep/leaf.bin", "sub/named.bin/kept.txt")),
        (("sub/de",), ()),
        (("file.bin",), ()),
        (("sub/inner.bin",), ()),
        (("absent/far/away",), ()),
        (("SUB",), ()),
    ],
)
def test_files_below_a_prefix_go_but_for_hidden_ones(
    root: Any, volume: Volume, prefixes: tuple[str, ...], removed: tuple[str, ...]
) -> None:
    before = volume.tree("data")
    result = by_prefix(root, prefixes)
    assert result == removed and type(result) is tuple
    assert volume.tree("data") == {
        path: found for path, found in before.items() if path not in removed
    }


@pytest.mark.parametrize("suffix", ["", "/", "a/b", ".bin/", "/.bin"])
def test_a_suffix_that_is_empty_or_holds_a_separator_is_refused_first(
    root: Any, boundary: Any, suffix: str
) -> None:
    root.close()
    calls = len(boundary.calls)
    with fails_with(ValueError, BAD_SUFFIX) as caught:
        by_suffix(root, suffix, {"/bad"})
    assert caught.error.__context__ is None and len(boundary.calls) == calls


@pytest.mark.parametrize("case", BAD_PATHS)
def test_bad_paths_to_preserve_are_refused_before_anything_is_opened(
    root: Any, boundary: Any, case: str
) -> None:
    path, kind, text = BAD_PATHS[case]
    root.close()
    calls = len(boundary.calls)
    with fails_with(kind, text):
        by_suffix(root, ".bin", ["fine", path])
    with fails_with(kind, text):
        by_prefix(root, ("sub",), ["fine", path])
    assert len(boundary.calls) == calls


def test_prefixes_are_judged_before_the_paths_to_preserve(root: Any) -> None:
    with fails_with(ValueError, EXACT):
        by_prefix(root, ("sub", "/"), [None])
    with fails_with(TypeError, None):
        by_prefix(root, ("sub",), [None])


def test_no_prefix_removes_nothing_and_judges_nothing(root: Any, boundary: Any) -> None:
    root.close()
    calls = len(boundary.calls)
    assert by_prefix(root, (), {"/bad"}) == ()
    assert len(boundary.calls) == calls


def test_a_closed_root_is_told_after_the_arguments(root: Any) -> None:
    root.close()
    with fails_with(RuntimeError, CLOSED):
        by_suffix(root, ".bin")
    with fails_with(RuntimeError, CLOSED):
        by_prefix(root, ("sub",))


PRESERVED = {"sub/inner.bin", "sub/deep", "file.bin", "absent"}


def test_preserved_paths_stay_and_protect_nothing_below(root: Any) -> None:
    assert by_suffix(root, ".bin", PRESERVED) == ("sub/.hidden.bin", "sub/deep/leaf.bin")
    assert by_prefix(root, ("sub",), PRESERVED) == ("sub/named.bin/kept.txt",)


def test_paths_to_preserve_may_come_from_any_iterable_once(root: Any) -> None:
    assert by_suffix(root, "inner.bin", iter(["sub/inner.bin"])) == ()
    assert by_prefix(root, iter(["sub/deep"]), iter(["sub/deep/leaf.bin"])) == ()


def test_a_contained_root_cleans_below_itself(root: Any, volume: Volume) -> None:
    with root.open_contained_root("sub", label="sub") as contained:
        assert by_suffix(contained, "inner.bin") == ("inner.bin",)
        assert by_prefix(contained, ("deep",)) == ("deep/leaf.bin",)
    assert volume.exists(at("file.bin"))


NAMES = st.sampled_from(["a", "b", ".h", "a.tmp", "b.tmp"])
PATHS = st.lists(NAMES, min_size=1, max_size=3).map("/".join)
SELECTORS = st.sampled_from([".tmp", "a", "h", "p"])


def planned(paths: list[str]) -> dict[str, bytes]:
    """The paths that can stand together: none is a directory of another."""
    kept: dict[str, bytes] = {}
    for path in sorted(set(paths)):
        if not any(path.startswith(f"{other}/") for other in kept):
            kept[path] = path.encode()
    return kept


def selected_by_prefix(path: str, prefixes: list[str]) -> bool:
    hidden = any(part.startswith(".") for part in path.split("/"))
    return not hidden and any(path.startswith(f"{prefix}/") for prefix in prefixes)


@settings(max_examples=60)
@given(
    paths=st.lists(PATHS, max_size=8),
    preserved=st.sets(PATHS, max_size=3),
    suffix=SELECTORS,
    prefixes=st.lists(PATHS, min_size=1, max_size=3),
)
def test_what_goes_is_what_the_selection_says(
    paths: list[str], preserved: set[str], suffix: str, prefixes: list[str]
) -> None:
    selections: list[tuple[Callable[[str], bool], Callable[[Any], object]]] = [
        (lambda path: path.endswith(suffix), lambda root: by_suffix(root, suffix, preserved)),
        (
            lambda path: selected_by_prefix(path, prefixes),
            lambda root: by_prefix(root, tuple(prefixes), preserved),
        ),
    ]
    for chosen, clean in selections:
        standing = planned(paths)
        expected = sorted(p for p in standing if chosen(p) and p not in preserved)
        volume = Volume()
        volume.plant({"data": DIRECTORY, **{at(path): found for path, found in standing.items()}})
        boundary = SubstituteBoundary(volume)
        root = client_manifest._WindowsPinnedRoot("C:\\data", _boundary=boundary)
        assert clean(root) == tuple(expected)
        assert files(volume) == {p: c for p, c in standing.items() if p not in expected}
        root.close()
        assert not volume.open_handles and not volume.misuse
        volume.dispose()
