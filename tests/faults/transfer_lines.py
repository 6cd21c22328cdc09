"""The calls of moves, copies and links between a root `source` and a root `destination`."""

from __future__ import annotations

from faults.layout import down

SOURCE_PARENT = "source*/sub/deep"
TO_SOURCE = ["dup source", *down("source*", "sub", "deep")]
DESTINATION = "in/leaf"
INTO = "destination*/in"


def to_destination(mark: str = "") -> list[str]:
    """The creating walk to where the file goes, beside as many others as there are marks."""
    return [
        "dup destination",
        "mkdirat destination* in 755 -> EEXIST",
        "openat destination* in directory",
        f"fstat {INTO}{mark}",
        "close destination*",
    ]


def renamed(source: str, name: str, target: str) -> list[str]:
    """The rename to a free name with the look and the syncs behind it, and what is let go."""
    return [
        f"fstatat {target} leaf nofollow -> ENOENT",
        f"renameat {source} {name} to {target} leaf",
        f"fstatat {target} leaf nofollow",
        f"fsync {source}",
        f"fsync {target}",
        f"close {source}/{name}",
        f"close {target}",
        f"close {source}",
    ]


def replaced(mark: str = "") -> list[str]:
    """The publication of the transfer file, by a walk to each of both names."""
    source, target = f"{INTO}{mark}", f"{INTO}{mark}'"
    return [
        "dup destination",
        "openat destination* in directory",
        f"fstat {source}",
        "close destination*",
        f"openat {source} leaf.tmp source",
        f"fstat {source}/leaf.tmp",
        *to_destination(f"{mark}'"),
        *renamed(source, "leaf.tmp", target),
    ]


def removed(mark: str = "", *, is_there: bool = False) -> list[str]:
    """The removal of the transfer name, which a success has taken away before."""
    place = f"{INTO}{mark}"
    gone = [f"fstatat {place} leaf.tmp nofollow -> ENOENT"]
    there = [
        f"fstatat {place} leaf.tmp nofollow",
        f"unlinkat {place} leaf.tmp",
        f"fsync {place}",
    ]
    return [
        "dup destination",
        "openat destination* in directory",
        f"fstat {place}",
        "close destination*",
        *(there if is_there else gone),
        f"close {place}",
    ]
