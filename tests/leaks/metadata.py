"""Leak scenarios of the search for local metadata, and of the integers that a manifest gives."""

from __future__ import annotations

import json
import math
from functools import partial
from pathlib import Path
from typing import Any

from brindlefen.distribution import client_manifest

from leaks.scenarios import Ground, Hostile, Own, Scenario
from leaks.workplace import OnPlace, choosing, the_routes_own

SCENARIOS: dict[str, Scenario] = {}

BAD = client_manifest.ManifestJsonError
RECORD = {"version": 3, "market_id": "7", "era_number": 9.5}
TWO = {"market_x": RECORD, "market_y": RECORD}


class _NoInt:
    def __int__(self) -> int:
        raise Own("no integer")


NUMBERS: dict[str, tuple[object, type[BaseException] | None]] = {
    "small": (3, None),
    "large": (10**40, None),
    "below": (-(10**40), None),
    "true": (True, None),
    "a fraction": (2.9, None),
    "digits": (" 1_000 ", None),
    "bytes": (b"12", None),
    "no digits": ("three", None),
    "a list": ([], None),
    "no number": (math.nan, None),
    "no bounds": (math.inf, OverflowError),
    "failing": (_NoInt(), Own),
}
for name, (value, failure) in NUMBERS.items():

    def _convert(ground: Ground, value: object = value) -> object:
        return client_manifest.positive_manifest_int(value)

    SCENARIOS[f"a positive integer, {name}"] = Scenario(_convert, failure)


def _lay_out(place: Path, documents: dict[str, Any]) -> None:
    """Writes manifests: the flat one, and those of markets by the names of their directories."""
    for name, document in documents.items():
        era = place / "distribution" / name / "era_9"
        directory = place if name == "flat" else era
        directory.mkdir(parents=True, exist_ok=True)
        (directory / "manifest.json").write_text(json.dumps(document), encoding="utf-8")


def _search(documents: dict[str, Any], **asked: object) -> OnPlace:
    def act(place: Path) -> None:
        _lay_out(place, documents)
        client_manifest.local_client_manifest_metadata(place, **asked)

    return act


def _search_in(data_dir: Any, place: Path) -> None:
    client_manifest.local_client_manifest_metadata(data_dir)


def _look_at(name: str, place: Path) -> None:
    client_manifest.manifest_metadata_from_path(place / name)


SEARCHES: dict[str, tuple[OnPlace, type[BaseException] | None]] = {
    "flat": (_search({"flat": RECORD}), None),
    "market and era": (_search({"market_7": RECORD}, market_id=7, era_number=9), None),
    "absent and passed over": (_search({"flat": RECORD}, market_id=7, era_number=9), None),
    "an era alone": (_search({"market_x": RECORD}, era_number="9"), None),
    "two markets": (_search(TWO, era_number=9), None),
    "incomplete": (_search({"flat": {"version": 3}}), None),
    "nothing there": (_search({}, market_id=7, era_number=9), None),
    "nowhere": (partial(_search_in, None), None),
    "truth that fails": (partial(_search_in, Hostile()), Own),
    "no path": (partial(_search_in, 5), TypeError),
    "no object": (_search({"flat": []}), BAD),
    "not finite": (_search({"flat": {"version": math.inf}}), BAD),
    "out of bounds": (_search({"flat": RECORD}, market_id=math.inf), OverflowError),
    "a market that fails": (_search({}, market_id=_NoInt()), Own),
    "a link": (partial(_look_at, "link"), ValueError),
    "absent": (partial(_look_at, "absent"), None),
}
for name, (act, failure) in SEARCHES.items():
    SCENARIOS[f"metadata, {name}"] = Scenario(choosing(the_routes_own, act), failure)
