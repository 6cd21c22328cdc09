"""The example that installs a generation keeps its promises, and tells by its status if it cannot.

It runs as a program, as a newcomer runs it, on generations of a few small members.
"""

from __future__ import annotations

import importlib
import subprocess
import sys
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution import client_manifest

EXAMPLES = Path(__file__).resolve().parents[2] / "examples"
SHARED = "found_signals/alpha/signal_is/pnl.arrow"
CHANGED = "found_signals/alpha/parameters.bin"
LARGE = "found_strategies/gamma/weights.bin"
DROPPED = "found_signals/beta/parameters.bin"
ADDED = "useful_signals/delta/notes.bin"
LEFT_OVER = "found_signals/omega/left.bin"


@dataclass(frozen=True)
class Generations:
    """An installed generation, what was received of the next one, and where that belongs."""

    old: Path
    received: Path
    data_dir: Path

    @property
    def new(self) -> Path:
        return self.data_dir / "distribution/market_7/era_4"

    def install(self) -> subprocess.CompletedProcess[str]:
        program = EXAMPLES / "install_generation.py"
        command = [sys.executable, program, self.old, self.received, self.data_dir]
        return subprocess.run(list(map(str, command)), text=True, capture_output=True)


@pytest.fixture()
def produce(monkeypatch: pytest.MonkeyPatch) -> Any:
    """The module that the example producer is."""
    monkeypatch.syspath_prepend(EXAMPLES)
    return importlib.import_module("produce_distribution")


@pytest.fixture()
def generations(tmp_path: Path, produce: Any) -> Generations:
    def member(path: str, size_bytes: int, revision: int) -> Any:
        section, entity = path.split("/")[:2]
        kind = "found_signal_is_pnl" if path == SHARED else "other"
        return produce.Member(section, entity, path, kind, size_bytes, revision)

    shared = member(SHARED, 5_000, 1)
    made = Generations(
        tmp_path / "data/distribution/market_7/era_3", tmp_path / "received", tmp_path / "data"
    )
    produce.write_distribution(
        made.old,
        [shared, *(member(path, 100, 1) for path in (CHANGED, DROPPED))],
        market_id=7,
        era_number=3,
    )
    produce.write_distribution(
        made.received,
        [shared, member(CHANGED, 100, 2), member(LARGE, 1_500_000, 2), member(ADDED, 0, 2)],
        market_id=7,
        era_number=4,
        version=2,
        since=1,
    )
    return made


def files_below(directory: Path) -> set[str]:
    return {str(p.relative_to(directory)) for p in directory.rglob("*") if not p.is_dir()}


def test_members_are_shared_written_and_dropped(generations: Generations) -> None:
    result = generations.install()
    assert (result.returncode, result.stderr) == (0, "")
    new = generations.new
    loaded = client_manifest.load_accepted_distribution_set(new)
    assert loaded.membership_paths == (CHANGED, SHARED, LARGE, ADDED)
    listed = {"manifest.json", loaded.signals_index_path, *loaded.membership_paths}
    assert files_below(new) == listed
    assert (new / SHARED).samefile(generations.old / SHARED)
    assert not (new / CHANGED).samefile(generations.old / CHANGED)
    assert "client_manifest_version': 2" in result.stdout


def test_the_old_generation_stays_as_it_was(generations: Generations) -> None:
    before = client_manifest.load_accepted_distribution_set(generations.old)
    assert generations.install().returncode == 0
    assert client_manifest.load_accepted_distribution_set(generations.old) == before


def test_what_an_earlier_attempt_left_is_cleared_away(generations: Generations) -> None:
    staged = f"{SHARED.rpartition('/')[0]}/.pnl.arrow.1.1.0123456789abcdef.tmp"
    for path in (LEFT_OVER, staged, f"{CHANGED}.0123456789abcdef.tmp"):
        (generations.new / path).parent.mkdir(parents=True, exist_ok=True)
        (generations.new / path).touch()
    result = generations.install()
    assert result.returncode == 0
    assert LEFT_OVER in result.stdout and staged in result.stdout
    assert not (generations.new / LEFT_OVER).parent.exists()


def test_it_can_be_run_again(generations: Generations) -> None:
    assert generations.install().returncode == 0
    assert generations.install().returncode == 0


def drop_a_received_member(made: Generations) -> None:
    (made.received / CHANGED).unlink()


def change_a_received_member(made: Generations) -> None:
    (made.received / LARGE).write_bytes(b"?" * 1_500_000)


def change_an_installed_member(made: Generations) -> None:
    (made.old / SHARED).write_bytes(b"?" * 5_000)


def break_the_received_manifest(made: Generations) -> None:
    (made.received / "manifest.json").write_bytes(b"{}")


def leave_a_link_among_the_leftovers(made: Generations) -> None:
    (made.new / LEFT_OVER).parent.mkdir(parents=True)
    (made.new / LEFT_OVER).symlink_to(made.old / SHARED)


@pytest.mark.parametrize(
    ("spoil", "words"),
    [
        (drop_a_received_member, f"received member is missing: {CHANGED}"),
        (change_a_received_member, "membership file sha256"),
        (change_an_installed_member, "membership file sha256"),
        (break_the_received_manifest, "manifest signals_index is required"),
        (leave_a_link_among_the_leftovers, "contained cleanup target is a symlink"),
    ],
)
def test_a_generation_that_cannot_be_proved_gets_no_manifest(
    generations: Generations, spoil: Callable[[Generations], None], words: str
) -> None:
    spoil(generations)
    result = generations.install()
    assert result.returncode != 0
    assert words in result.stderr
    assert not (generations.new / "manifest.json").exists()


def test_the_old_generation_is_not_installed_over_itself(generations: Generations) -> None:
    made = Generations(generations.old, generations.old, generations.data_dir)
    result = made.install()
    assert result.returncode != 0
    assert "the old generation lies there already" in result.stderr
    client_manifest.load_accepted_distribution_set(generations.old)


def test_a_file_that_no_rule_clears_away_is_told_of(generations: Generations) -> None:
    generations.new.mkdir(parents=True)
    (generations.new / "stray.bin").touch()
    result = generations.install()
    assert result.returncode == 1
    assert "FAILED: the target holds other files" in result.stdout


def copy_and_say(word: str) -> Callable[..., str]:
    def transfer(*where: Any) -> str:
        client_manifest.copy_contained_regular_file(*where)
        return word

    return transfer


def no_record(*_given: Any, **_asked: Any) -> dict[str, int]:
    return {}


@pytest.mark.parametrize(
    ("operation", "stand_in", "words"),
    [
        ("link_or_copy_contained_regular_file", copy_and_say("linked"), "shared is False"),
        ("link_or_copy_contained_regular_file", copy_and_say("copied"), "nothing was linked"),
        ("local_client_manifest_metadata", no_record, "the metadata record is another"),
    ],
)
def test_a_promise_that_the_module_breaks_is_told_of(
    generations: Generations,
    monkeypatch: pytest.MonkeyPatch,
    capsys: pytest.CaptureFixture[str],
    operation: str,
    stand_in: Callable[..., object],
    words: str,
) -> None:
    example = importlib.import_module("install_generation")
    monkeypatch.setattr(client_manifest, operation, stand_in)
    status = example.main(
        [str(generations.old), str(generations.received), str(generations.data_dir)]
    )
    assert status == 1
    shown = capsys.readouterr().out
    assert "FAILED: " in shown and words in shown
