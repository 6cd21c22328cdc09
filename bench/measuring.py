"""Takes times and the peak of memory, around the work alone."""

from __future__ import annotations

import itertools
import json
import resource
import subprocess
import time
from collections.abc import Callable, Sequence
from pathlib import Path
from typing import cast

Result = dict[str, float]


def timed(action: Callable[[], object]) -> Result:
    """CPU seconds of the whole process, and seconds on the wall."""
    wall, cpu = time.perf_counter(), time.process_time()
    action()
    return {"cpu": time.process_time() - cpu, "wall": time.perf_counter() - wall}


def timed_programs(action: Callable[[], object]) -> Result:
    """CPU seconds of the programs that the action runs, and seconds on the wall."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    result = timed(action)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    used = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
    return {"cpu": used, "wall": result["wall"]}


def by_program(command: Sequence[str], given: str = "") -> Result:
    """What a program measured of itself and printed."""
    done = subprocess.run(command, input=given, stdout=subprocess.PIPE, text=True, check=True)
    return cast(Result, json.loads(done.stdout))


def peak_mib() -> float:
    """The peak of resident memory, of this program alone.

    The host's ru_maxrss would also count the process that started this one.
    """
    status = Path("/proc/self/status").read_text("ascii")
    line = next(line for line in status.splitlines() if line.startswith("VmHWM:"))
    return int(line.split()[1]) / 1024


def forget_peak() -> None:
    """Lets the peak begin anew at what is resident now."""
    Path("/proc/self/clear_refs").write_text("5", "ascii")


def repeat(action: Callable[[], object], count: int) -> None:
    for _ in itertools.repeat(None, count):
        action()


def require(condition: bool, what: str) -> None:
    """Ends the measurement if the work was not done: its time would tell nothing."""
    if not condition:
        raise SystemExit(f"not as it should be: {what}")
