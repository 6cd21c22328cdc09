"""Makes the collections between the rounds of a hunt short."""

from __future__ import annotations

import gc
from collections.abc import Iterator

import pytest


@pytest.fixture(scope="module")
def short_collections() -> Iterator[None]:
    """What the rest of the suite holds is no part of a hunt, and makes collections slow."""
    gc.collect()
    gc.freeze()
    yield
    gc.unfreeze()
