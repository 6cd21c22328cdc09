"""Lists the one-shot functions: the call on the root that each stands for, and its arguments."""

from __future__ import annotations

from typing import Any, NamedTuple

from brindlefen.distribution import client_manifest

CHUNK = 1_048_576


class Member(NamedTuple):
    """One function as it is called, and the operation on the pinned root that it leads to."""

    function: str
    args: tuple[Any, ...]
    keywords: dict[str, Any]
    operation: str
    passed_args: tuple[Any, ...]
    passed_keywords: dict[str, Any]
    creates: bool = False

    def call(self, root: Any, *args: Any, **keywords: Any) -> Any:
        """Calls the function with its own arguments, unless others are given."""
        return getattr(client_manifest, self.function)(
            root, *(args or self.args), **{**self.keywords, **keywords}
        )


PATH = "sub/leaf.bin"
LABEL = "the label"
PAYLOAD = b"payload"
KEPT = {"sub/kept.tmp"}

READ = Member(
    "read_contained_regular_file",
    (PATH,),
    {"label": LABEL},
    "read_regular_file",
    (PATH,),
    {"label": LABEL},
)
READ_IF_PRESENT = Member(
    "read_contained_regular_file_if_present",
    (PATH,),
    {"label": LABEL},
    "read_regular_file_if_present",
    (PATH,),
    {"label": LABEL},
)
STAT = Member(
    "stat_contained_regular_file",
    (PATH,),
    {"label": LABEL},
    "stat_regular_file",
    (PATH,),
    {"label": LABEL},
)
IDENTIFY = Member(
    "identify_contained_regular_file",
    (PATH,),
    {"label": LABEL, "chunk_bytes": 7},
    "hash_regular_file",
    (PATH,),
    {"label": LABEL, "chunk_bytes": 7},
)
HASH = IDENTIFY._replace(function="hash_contained_regular_file")
WRITE = Member(
    "write_contained_regular_file",
    (PATH, PAYLOAD),
    {"allow_replace": False},
    "write_atomic",
    (PATH, PAYLOAD),
    {"allow_replace": False},
    creates=True,
)
REMOVE = Member(
    "remove_contained_regular_file",
    (PATH,),
    {"missing_ok": False},
    "remove_regular_file",
    (PATH,),
    {"missing_ok": False},
)
CLEAN_UP = Member(
    "cleanup_contained_regular_files",
    (),
    {"suffix": ".tmp", "preserve_relative_paths": KEPT},
    "remove_regular_files_with_suffix",
    (".tmp",),
    {"preserve_relative_paths": KEPT},
)
CLEAN_UP_PREFIXES = Member(
    "cleanup_contained_regular_files_in_prefixes",
    (),
    {"prefixes": ("sub",), "preserve_relative_paths": KEPT},
    "remove_regular_files_in_prefixes",
    (("sub",),),
    {"preserve_relative_paths": KEPT},
)
ENSURE = Member(
    "ensure_contained_directory", (PATH,), {}, "ensure_directory", (PATH,), {}, creates=True
)
REMOVE_TREE = Member(
    "remove_contained_directory_tree",
    (PATH,),
    {"missing_ok": False},
    "remove_directory_tree",
    (PATH,),
    {"missing_ok": False},
)

MEMBERS = (
    READ,
    READ_IF_PRESENT,
    STAT,
    IDENTIFY,
    HASH,
    WRITE,
    REMOVE,
    CLEAN_UP,
    CLEAN_UP_PREFIXES,
    ENSURE,
    REMOVE_TREE,
)
CREATING = tuple(member for member in MEMBERS if member.creates)
OTHERS = tuple(member for member in MEMBERS if not member.creates)
WITH_A_PATH = tuple(member for member in MEMBERS if member.args)

# What the operation is given when the caller leaves the optional arguments away.
BY_DEFAULT = (
    IDENTIFY._replace(
        keywords={"label": LABEL}, passed_keywords={"label": LABEL, "chunk_bytes": CHUNK}
    ),
    HASH._replace(
        keywords={"label": LABEL}, passed_keywords={"label": LABEL, "chunk_bytes": CHUNK}
    ),
    WRITE._replace(keywords={}, passed_keywords={"allow_replace": True}),
    REMOVE._replace(keywords={}, passed_keywords={"missing_ok": True}),
    REMOVE_TREE._replace(keywords={}, passed_keywords={"missing_ok": True}),
)
