"""A process that ends while daemon threads are inside the module ends quietly."""

from __future__ import annotations

import subprocess
import sys
from pathlib import Path

import pytest

CHILD = Path(__file__).with_name("shutdown_child.py")


@pytest.mark.parametrize("rounds", range(0, 60, 3))
def test_daemon_threads_do_not_disturb_the_end_of_the_process(rounds: int, tmp_path: Path) -> None:
    (tmp_path / "file").write_bytes(bytes(4096))
    child = subprocess.run(
        [sys.executable, str(CHILD), str(tmp_path), str(rounds)],
        capture_output=True,
        text=True,
        check=False,
    )
    assert (child.returncode, child.stderr) == (0, "")
