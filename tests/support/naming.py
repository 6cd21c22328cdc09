"""Names of test cases that are the same in every run, whatever the values are."""

from __future__ import annotations

import re


def named(value: object) -> str:
    """What the host shows of a value, without where in memory it lies."""
    return re.sub(r" at 0x[0-9a-f]+", "", repr(value))
