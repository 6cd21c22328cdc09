"""The operations that take something out of a file, side by side in one shape."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

READS: dict[str, Callable[[Any, Any], object]] = {
    "read": lambda root, path: root.read_regular_file(path, label="file"),
    "read with stat": lambda root, path: root.read_regular_file_with_stat(path, label="file"),
    "read if present": lambda root, path: root.read_regular_file_if_present(path, label="file"),
    "hash": lambda root, path: root.hash_regular_file(path, label="file"),
    "stat": lambda root, path: root.stat_regular_file(path, label="file"),
}
