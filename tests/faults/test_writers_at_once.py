"""Writers that share a few leaves only ever see whole files and documented failures."""

from __future__ import annotations

import json
import os
import subprocess
import sys
import threading
from collections.abc import Iterator
from concurrent.futures import ThreadPoolExecutor
from contextlib import ExitStack, contextmanager
from pathlib import Path
from typing import Any

import pytest

from faults.layout import pinned
from faults.writers import (
    LEAVES,
    OUTCOMES,
    Writer,
    make_shared_tree,
    payload,
    require_quiet_tree,
    unexpected,
)

THREADS = 4
PROCESSES = 3
ROUNDS = 250
CHILD = Path(__file__).with_name("writer_child.py")


def _run_together(writers: list[Writer], rounds: int) -> list[tuple[str, str, str]]:
    start = threading.Barrier(len(writers))

    def run(writer: Writer) -> None:
        start.wait()
        writer.run(rounds)

    with ThreadPoolExecutor(len(writers)) as pool:
        list(pool.map(run, writers))
    return [outcome for writer in writers for outcome in writer.outcomes]


def _require_all_told(outcomes: list[tuple[str, str, str]]) -> None:
    assert unexpected(outcomes) == []
    succeeded = {name for name, kind, _ in outcomes if not kind}
    assert succeeded == set(OUTCOMES)


@pytest.mark.parametrize("seed", range(2))
def test_threads_that_share_one_root(seed: int, tmp_path: Path) -> None:
    path = make_shared_tree(tmp_path / "root")
    with pinned(path) as root:
        writers = [Writer(path, root, number, seed) for number in range(THREADS)]
        _require_all_told(_run_together(writers, ROUNDS))
    require_quiet_tree(path)


def test_threads_with_a_root_each(tmp_path: Path) -> None:
    path = make_shared_tree(tmp_path / "root")
    with ExitStack() as roots:
        writers = [
            Writer(path, roots.enter_context(pinned(path)), number, seed=2)
            for number in range(THREADS)
        ]
        _require_all_told(_run_together(writers, ROUNDS))
    require_quiet_tree(path)


def test_processes(tmp_path: Path) -> None:
    path = make_shared_tree(tmp_path / "root")
    with ExitStack() as started:
        children = [
            started.enter_context(_child(path, number, seed=3)) for number in range(PROCESSES)
        ]
        for child in children:
            assert child.stdout.readline() == "ready\n", child.stderr.read()
        for child in children:
            child.stdin.write("go\n")
            child.stdin.flush()
        told = [child.communicate() for child in children]
    assert [error for _, error in told] == [""] * PROCESSES
    assert [child.returncode for child in children] == [0] * PROCESSES
    outcomes = [json.loads(output) for output, _ in told]
    _require_all_told([(name, kind, text) for each in outcomes for name, kind, text in each])
    require_quiet_tree(path)


@contextmanager
def _child(path: Path, number: int, seed: int) -> Iterator[Any]:
    tests = str(CHILD.parents[1])
    paths = [tests, *filter(None, [os.environ.get("PYTHONPATH")])]
    with subprocess.Popen(
        [sys.executable, str(CHILD), *map(str, (path, number, seed, ROUNDS))],
        stdin=subprocess.PIPE,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        text=True,
        env={**os.environ, "PYTHONPATH": os.pathsep.join(paths)},
    ) as child:
        try:
            yield child
        finally:
            child.kill()


def test_a_lone_writer_meets_no_rival(tmp_path: Path) -> None:
    path = make_shared_tree(tmp_path / "root")
    with pinned(path) as root:
        writer = Writer(path, root, 0, seed=4)
        writer.run(ROUNDS)
    kinds = {kind for _, kind, _ in writer.outcomes}
    assert unexpected(writer.outcomes) == []
    assert kinds <= {"", "FileNotFoundError", "FileExistsError"}
    require_quiet_tree(path)


def test_the_table_knows_what_it_has_not_been_told_of() -> None:
    told = [
        ("write", "", ""),
        ("write", "ValueError", "contained file staging leaf changed during publish: sub/one"),
        ("write", "ValueError", "contained file staging leaf changed during publish: other"),
        ("read", "TornContent", "3 bytes of [65]"),
        ("remove", "ValueError", "[Errno 2] No such file or directory: 'one'"),
    ]
    assert unexpected(told) == told[2:]


def test_a_tree_with_a_torn_or_a_staged_file_is_not_quiet(tmp_path: Path) -> None:
    path = make_shared_tree(tmp_path / "root")
    require_quiet_tree(path)
    (path / LEAVES[0]).write_bytes(payload(1, 1)[:-1])
    with pytest.raises(AssertionError):
        require_quiet_tree(path)
    (path / LEAVES[0]).unlink()
    require_quiet_tree(path)
    (path / "sub" / ".one.1.2.0123456789abcdef.tmp").write_bytes(payload(1, 1))
    with pytest.raises(AssertionError):
        require_quiet_tree(path)
