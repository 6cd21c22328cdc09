"""Says which members each generation of the example distribution has, and what their bytes are.

Everything follows from path, size and revision, so that every run makes the same files.
"""

from __future__ import annotations

import hashlib
import random
from collections.abc import Iterator
from dataclasses import dataclass, replace

PIECE_BYTES = 1 << 20


@dataclass(frozen=True)
class Member:
    """One file that belongs to one entity of one section, as the generation `revision` made it."""

    section: str
    entity_id: str
    relative_path: str
    kind: str
    size_bytes: int
    revision: int = 1


def content_of(member: Member) -> Iterator[bytes]:
    """The member's pseudo-random bytes in pieces: the same for the same path, size and revision."""
    path = member.relative_path
    source = random.Random(path if member.revision == 1 else f"{path}, revision {member.revision}")
    left = member.size_bytes
    while left > 0:
        piece = source.randbytes(min(left, PIECE_BYTES))
        left -= len(piece)
        yield piece


def digest_of(member: Member) -> str:
    """The member's SHA-256 in lower-case hexadecimal."""
    digest = hashlib.sha256()
    for piece in content_of(member):
        digest.update(piece)
    return digest.hexdigest()


# The sizes go round in this order: empty, tiny, and on both sides of one page and one chunk.
SIZES = (0, 1, 511, 4_096, 20_000, 65_537, 262_144, 524_289, 1_048_576, 2_097_153)
LARGE = {7: 32 << 20, 41: 8 << 20, 152: 8 << 20, 263: 8 << 20}


def example_members() -> list[Member]:
    """Three hundred members over all three sections, about 170 MiB in all."""
    names: list[tuple[str, str, str, str]] = []
    for number in range(80):
        entity = f"signal_{number:03}"
        base = f"found_signals/{entity}"
        leaf = f"{base}/signal_is/pnl.arrow"
        names.append(("found_signals", entity, leaf, "found_signal_is_pnl"))
        names.append(("found_signals", entity, f"{base}/parameters.bin", "parameters"))
    for number in range(40):
        entity = f"strategy_{number:03}"
        base = f"found_strategies/{entity}"
        leaf = f"{base}/strategy_is/pnl.arrow"
        names.append(("found_strategies", entity, leaf, "found_strategy_is_epoch_pnl"))
        names.append(("found_strategies", entity, f"{base}/weights.bin", "weights"))
    for number in range(60):
        entity = f"useful_{number:03}"
        leaf = f"useful_signals/{entity}/signal_os/pnl.arrow"
        names.append(("useful_signals", entity, leaf, "useful_signal_pnl"))
    return [
        Member(*name, size_bytes=LARGE.get(place, SIZES[place % len(SIZES)]))
        for place, name in enumerate(names)
    ]


def members_of(generation: int) -> list[Member]:
    """The members of one generation: each after the first drops, revises and adds a few."""
    members = example_members()
    for step in range(2, generation + 1):
        dropped, added = f"signal_{step:03}", f"signal_{78 + step:03}"
        members = [
            replace(member, revision=step) if place % 25 == step else member
            for place, member in enumerate(members)
            if member.entity_id != dropped
        ]
        base = f"found_signals/{added}"
        leaf = f"{base}/signal_is/pnl.arrow"
        members += [
            Member("found_signals", added, leaf, "found_signal_is_pnl", 65_537, step),
            Member("found_signals", added, f"{base}/parameters.bin", "parameters", 4_096, step),
        ]
    return members
