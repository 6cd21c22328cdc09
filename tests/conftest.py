"""Set-up for every suite: the hypothesis profile, and a descriptor count around each test."""

from __future__ import annotations

import gc
from collections.abc import Iterator

import pytest
from hypothesis import HealthCheck, settings

from support.descriptors import descriptors_kept

settings.register_profile(
    "suite",
    deadline=None,
    suppress_health_check=[HealthCheck.too_slow, HealthCheck.function_scoped_fixture],
)
settings.load_profile("suite")


def pytest_collection_finish() -> None:
    """Keeps what was collected out of every later look of the garbage collector.

    It stays to the end; going through it again in each test would take most of the time.
    """
    gc.collect()
    gc.freeze()


@pytest.fixture(autouse=True)
def no_descriptor_is_left(request: pytest.FixtureRequest) -> Iterator[None]:
    """Every test ends with the descriptors that it began with.

    A test that proves a leak by design says so with `@pytest.mark.keeps_descriptors`.
    """
    if request.node.get_closest_marker("keeps_descriptors"):
        yield
        return
    with descriptors_kept():
        yield
