"""An allocation that fails anywhere in an operation leaves no descriptor and no staged file."""

from __future__ import annotations

import subprocess
import sys
from pathlib import Path

import pytest

CHILD = str(Path(__file__).with_name("exhaustion_child.py"))


def test_each_allocation_can_fail_once(tmp_path: Path) -> None:
    pytest.importorskip("_testcapi", reason="the host's own means to make allocations fail")
    done = subprocess.run(
        [sys.executable, CHILD, str(tmp_path)], capture_output=True, text=True, check=False
    )
    assert done.returncode == 0, done.stderr
    assert done.stdout.split() == ["read", "hash", "write", "copy", "link", "clean", "whole"]
