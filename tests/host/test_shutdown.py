"""A process that ends while the module is in use ends quietly."""

from __future__ import annotations

import subprocess
import sys
from pathlib import Path

import pytest

CHILDREN = Path(__file__).parent


def run(child: str, *arguments: object) -> tuple[int, str, str]:
    ended = subprocess.run(
        [sys.executable, str(CHILDREN / child), *map(str, arguments)],
        capture_output=True,
        text=True,
        check=False,
    )
    return ended.returncode, ended.stdout, ended.stderr


@pytest.mark.parametrize("rounds", range(0, 60, 3))
@pytest.mark.parametrize("child", ["shutdown_child.py", "shutdown_in_finaliser_child.py"])
def test_daemon_threads_do_not_disturb_the_end_of_the_process(
    child: str, rounds: int, tmp_path: Path
) -> None:
    (tmp_path / "file").write_bytes(bytes(4096))
    assert run(child, tmp_path, rounds) == (0, "", "")


def test_a_finaliser_may_use_the_module_while_the_host_shuts_down(tmp_path: Path) -> None:
    (tmp_path / "file").write_bytes(b"abc")
    said = "file is missing: missing\n3 3 3 None\n"
    assert run("finaliser_child.py", tmp_path) == (0, said * 3, "")
