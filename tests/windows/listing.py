"""Lays the names of a directory out as the kernel does: batches of records that fit a buffer."""

from __future__ import annotations

import struct

from windows import kernel_numbers as n
from windows.handles import Opening


def next_batch(opening: Opening, room: int) -> tuple[int, bytes]:
    """The next names in the volume's order, as records that fit into `room` bytes."""
    listed = opening.listed
    names = [(key, child.name) for key, child in opening.node.children.items()]
    if opening.node.parent is not None:
        names += [("", "."), ("\0", "..")]
    records: list[bytes] = []
    used = 0
    for key, name in sorted(names):
        if listed is not None and key <= listed:
            continue
        encoded = name.encode("utf-16-le", "surrogatepass")
        begin = -used % 8
        if used + begin + 12 + len(encoded) > room:
            if not records:
                return n.STATUS_BUFFER_OVERFLOW, b""
            break
        records.append(encoded)
        used += begin + 12 + len(encoded)
        opening.listed = key
    if not records:
        return n.STATUS_NO_MORE_FILES, b""
    return n.STATUS_SUCCESS, _records(records)


def _records(names: list[bytes]) -> bytes:
    data = b""
    for position, name in enumerate(names):
        length = 12 + len(name)
        step = length + -length % 8 if position + 1 < len(names) else 0
        data += (struct.pack("<III", step, 0, len(name)) + name).ljust(step, b"\0")
    return data
