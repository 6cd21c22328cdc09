"""No operation, and no failure of one, leaves a reference or a descriptor behind."""

from __future__ import annotations

import os
from pathlib import Path
from typing import Any

import pytest

from leaks import documents, metadata, moving, path_level, roots, transfers, trees, writing
from leaks.hunt import require_no_leak
from leaks.scenarios import ROUTES, Ground


pytestmark = pytest.mark.usefixtures("short_collections")


@pytest.fixture(scope="module")
def grounds(tmp_path_factory: pytest.TempPathFactory) -> dict[str, Ground]:
    """The ground of each route; only one scenario at a time works on it."""
    place = tmp_path_factory.mktemp("leaks")
    tree = roots.make_tree(place / "tree")
    distribution = roots.make_distribution(place / "distribution")
    return {
        route: Ground(root_class(), tree, distribution) for route, root_class in ROUTES.items()
    }


@pytest.mark.parametrize("name", documents.SCENARIOS)
def test_work_on_documents_leaves_nothing_behind(name: str, grounds: dict[str, Ground]) -> None:
    require_no_leak(lambda: documents.SCENARIOS[name].run(grounds["direct"]))


@pytest.mark.parametrize("route", ROUTES)
@pytest.mark.parametrize("name", roots.SCENARIOS)
def test_work_on_a_disk_leaves_nothing_behind(
    name: str, route: str, grounds: dict[str, Ground]
) -> None:
    require_no_leak(lambda: roots.SCENARIOS[name].run(grounds[route]))


@pytest.mark.parametrize("name", metadata.SCENARIOS)
def test_looking_for_metadata_leaves_nothing_behind(name: str, grounds: dict[str, Ground]) -> None:
    require_no_leak(lambda: metadata.SCENARIOS[name].run(grounds["direct"]), repeats=3)


# A call that waits for the disk each time is made fewer times: one that leaks is still told.
CHANGES = {
    **writing.SCENARIOS,
    **moving.SCENARIOS,
    **trees.SCENARIOS,
    **path_level.SCENARIOS,
    **transfers.SCENARIOS,
}


@pytest.mark.parametrize("route", ROUTES)
@pytest.mark.parametrize("name", CHANGES)
def test_changing_a_disk_leaves_nothing_behind(
    name: str, route: str, grounds: dict[str, Ground]
) -> None:
    require_no_leak(lambda: CHANGES[name].run(grounds[route]), repeats=3)


def test_the_hunt_sees_an_object_that_is_kept() -> None:
    kept: list[Any] = []
    with pytest.raises(AssertionError, match="calls left"):
        require_no_leak(lambda: kept.append(object()))


def test_the_hunt_sees_a_descriptor_that_is_kept(tmp_path: Path) -> None:
    kept: list[int] = []
    with pytest.raises(AssertionError):
        require_no_leak(lambda: kept.append(os.open(tmp_path, os.O_RDONLY)))
    for descriptor in kept:
        os.close(descriptor)
