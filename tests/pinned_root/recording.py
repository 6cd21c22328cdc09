"""A root that notes each of its own calls through the instance, with the exact arguments."""

from __future__ import annotations

from typing import Any, NamedTuple

from brindlefen.distribution.client_manifest import PinnedRoot


class Call(NamedTuple):
    """One call of an operation, as it was written: positional and keyword arguments apart."""

    name: str
    args: tuple[Any, ...]
    keywords: dict[str, Any]


INSTANCE_OPERATIONS = (
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
)


def recording_class() -> type[PinnedRoot]:
    """A fresh subclass of `PinnedRoot` whose `calls` list is shared by all its instances.

    Each operation is overridden by one that notes the call and passes it to the base class, so
    every call within the module has to come through the instance.
    """

    class Recording(PinnedRoot):
        calls: list[Call] = []

    def note(name: str) -> Any:
        base = getattr(PinnedRoot, name)

        def operation(self: PinnedRoot, *args: Any, **keywords: Any) -> Any:
            Recording.calls.append(Call(name, args, keywords))
            return base(self, *args, **keywords)

        return operation

    def note_absolute(cls: type[Recording], *args: Any, **keywords: Any) -> Any:
        Recording.calls.append(Call("_open_absolute_directory", args, keywords))
        return super(Recording, cls)._open_absolute_directory(*args, **keywords)

    def note_components(*args: Any, **keywords: Any) -> Any:
        Recording.calls.append(Call("_open_directory_components", args, keywords))
        return PinnedRoot._open_directory_components(*args, **keywords)

    for name in INSTANCE_OPERATIONS:
        setattr(Recording, name, note(name))
    setattr(Recording, "_open_absolute_directory", classmethod(note_absolute))
    setattr(Recording, "_open_directory_components", staticmethod(note_components))
    return Recording


def names_of(calls: list[Call]) -> list[str]:
    return [call.name for call in calls]
