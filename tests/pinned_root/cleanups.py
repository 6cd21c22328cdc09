"""The two cleanups in one shape, each with a selector that picks the files named `yard/*.tmp`."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

# Both pick `yard/one.tmp`; the first by the end of its name, the second by its place.
CLEANUPS: dict[str, Callable[[Any, Any], Any]] = {
    "suffix": lambda root, preserved: root.remove_regular_files_with_suffix(
        ".tmp", preserve_relative_paths=preserved
    ),
    "prefix": lambda root, preserved: root.remove_regular_files_in_prefixes(
        ("yard",), preserve_relative_paths=preserved
    ),
}


def by_suffix(root: Any, suffix: Any, preserved: Any = ()) -> Any:
    return root.remove_regular_files_with_suffix(suffix, preserve_relative_paths=preserved)


def by_prefix(root: Any, prefixes: Any, preserved: Any = ()) -> Any:
    return root.remove_regular_files_in_prefixes(prefixes, preserve_relative_paths=preserved)
