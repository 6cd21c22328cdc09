"""No operation for Windows, and no failure of one, leaves a reference or a handle behind."""

from __future__ import annotations

from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest

from leaks import windows_boundary, windows_roots
from leaks.hunt import require_no_leak
from leaks.scenarios import Ground

# A file object that is dropped, since a handle would not close, is closed by its destructor.
pytestmark = [
    pytest.mark.filterwarnings(
        "ignore::ResourceWarning", "ignore::pytest.PytestUnraisableExceptionWarning"
    ),
    pytest.mark.usefixtures("short_collections"),
]

def ground(root_class: Any) -> Ground:
    """These scenarios need no directory of the disk."""
    return Ground(root_class, Path(), Path())


@pytest.mark.parametrize("name", windows_boundary.SCENARIOS)
def test_what_needs_no_windows_leaves_nothing_behind(name: str) -> None:
    here = ground(None)
    require_no_leak(lambda: windows_boundary.SCENARIOS[name].run(here))


@pytest.mark.parametrize("route", windows_roots.ROUTES)
@pytest.mark.parametrize("name", windows_roots.SCENARIOS)
def test_work_on_a_volume_leaves_nothing_behind(name: str, route: str) -> None:
    here = ground(windows_roots.ROUTES[route]())
    require_no_leak(lambda: windows_roots.SCENARIOS[name].run(here), repeats=3)


@pytest.mark.parametrize("name", windows_roots.OPERATIONS)
def test_failing_calls_on_a_volume_leave_nothing_behind(name: str) -> None:
    root_class = client_manifest._WindowsPinnedRoot
    work = windows_roots.OPERATIONS[name]
    steps = windows_roots.steps_of(root_class, work)

    def fail_at_each_call() -> None:
        for call, nth in steps:
            windows_roots.fail_at(root_class, work, call, nth)

    require_no_leak(fail_at_each_call, repeats=1)
