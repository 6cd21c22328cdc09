"""Hunts for references and descriptors that an operation leaves behind, as the host's own tests do.

A debug interpreter counts every reference. Any other counts the blocks of memory that its objects
hold, which shows the leak of an object, but not that of one more reference to an old one.
"""

from __future__ import annotations

import gc
import sys
from collections.abc import Callable

from support.descriptors import open_descriptors

WARM_UPS = 3
ROUNDS = 3


def held() -> int:
    """What the interpreter holds now, in references or in blocks.

    The cache of attribute look-ups keeps the names that it has met, and grows for a long time.
    """
    sys._clear_type_cache()
    gc.collect()
    count = getattr(sys, "gettotalrefcount", sys.getallocatedblocks)()
    assert isinstance(count, int)
    return count


def growth(act: Callable[[], object], repeats: int) -> int:
    """By how much the quietest of several rounds grew, each of `repeats` calls.

    The host's own caches grow and shrink now and then; a leak grows in every round.
    """
    for _ in range(WARM_UPS):
        act()
    rounds = [0] * ROUNDS
    before = held()
    for number in range(ROUNDS):
        for _ in range(repeats):
            act()
        after = held()
        rounds[number] = after - before
        before = after
    return min(rounds)


def require_no_leak(act: Callable[[], object], *, repeats: int = 12) -> None:
    """Requires that `act` leaves neither references nor descriptors behind."""
    descriptors = open_descriptors()
    grown = growth(act, repeats)
    # One left behind at each call makes `repeats` a round; half of that is no noise any more.
    assert 2 * grown < repeats, f"{repeats} calls left {grown} behind, round after round"
    assert open_descriptors() == descriptors
