"""A process that ends while the module is in use ends quietly."""

from __future__ import annotations

import os
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
def test_daemon_threads_do_not_disturb_the_end_of_the_process(rounds: int, tmp_path: Path) -> None:
    (tmp_path / "file").write_bytes(bytes(4096))
    assert run("shutdown_child.py", tmp_path, rounds) == (0, "", "")


@pytest.mark.skipif(
    "ASAN_OPTIONS" in os.environ,
    reason="the sanitizer does not follow the host when it unwinds a thread from within a finaliser",
)
@pytest.mark.parametrize("rounds", range(0, 60, 3))
def test_nor_do_daemon_threads_that_run_finalisers(rounds: int, tmp_path: Path) -> None:
    (tmp_path / "file").write_bytes(bytes(4096))
    assert run("shutdown_in_finaliser_child.py", tmp_path, rounds) == (0, "", "")


def test_a_finaliser_may_use_the_module_while_the_host_shuts_down(tmp_path: Path) -> None:
    (tmp_path / "file").write_bytes(b"abc")
    said = "file is missing: missing\n3 3 3 None\n"
    assert run("finaliser_child.py", tmp_path) == (0, said * 3, "")
