"""Proves how a stat result becomes the five integers by which a file is recognised."""

from __future__ import annotations

import os
from decimal import Decimal
from pathlib import Path
from types import SimpleNamespace
from typing import Any

import pytest
from hypothesis import given
from hypothesis import strategies as st

from brindlefen.distribution import client_manifest

FULL: dict[str, Any] = {
    "st_size": 11,
    "st_mtime_ns": 22,
    "st_ctime_ns": 33,
    "st_dev": 44,
    "st_ino": 55,
}


class Convertible:
    """Stands for any value that the host's `int` takes."""

    def __init__(self, number: int) -> None:
        self.number = number

    def __int__(self) -> int:
        return self.number


class Recording:
    """Notes each attribute that is asked for, and has only those of `FULL`."""

    def __init__(self) -> None:
        self.asked: list[str] = []

    def __getattr__(self, name: str) -> Any:
        self.asked.append(name)
        return FULL[name]


def stat_of(**changes: Any) -> Any:
    fields = {**FULL, **changes}
    return SimpleNamespace(**{name: fields[name] for name in fields if fields[name] is not ...})


def test_nanoseconds_are_taken_from_the_attribute_that_has_them() -> None:
    file_stat: Any = SimpleNamespace(st_mtime_ns=2**60 + 1)
    assert client_manifest._stat_nanoseconds(file_stat, "st_mtime") == 2**60 + 1


def test_seconds_are_not_touched_when_nanoseconds_are_there() -> None:
    class Exact:
        st_mtime_ns = 5

        @property
        def st_mtime(self) -> float:
            raise AssertionError("seconds were read")

    assert client_manifest._stat_nanoseconds(Exact(), "st_mtime") == 5  # type: ignore[arg-type]


def test_zero_nanoseconds_are_a_time_and_not_an_absence() -> None:
    file_stat: Any = SimpleNamespace(st_mtime_ns=0, st_mtime=9)
    assert client_manifest._stat_nanoseconds(file_stat, "st_mtime") == 0


@pytest.mark.parametrize("value", [7, 7.9, Convertible(7), " 7 "])
def test_nanoseconds_go_through_the_host_conversion(value: Any) -> None:
    file_stat: Any = SimpleNamespace(st_mtime_ns=value)
    result = client_manifest._stat_nanoseconds(file_stat, "st_mtime")
    assert result == 7
    assert type(result) is int


@pytest.mark.parametrize(
    ("seconds", "nanoseconds"),
    [
        (12, 12_000_000_000),
        (1.5, 1_500_000_000),
        (0.0000000019, 1),
        (-0.0000000019, -1),
        (Decimal("0.0000000029"), 2),
        (2**70, 2**70 * 1_000_000_000),
        (True, 1_000_000_000),
    ],
)
@pytest.mark.parametrize("nanosecond_attribute", [{}, {"st_ctime_ns": None}])
def test_seconds_are_multiplied_and_truncated(
    seconds: Any, nanoseconds: int, nanosecond_attribute: dict[str, None]
) -> None:
    file_stat: Any = SimpleNamespace(st_ctime=seconds, **nanosecond_attribute)
    result = client_manifest._stat_nanoseconds(file_stat, "st_ctime")
    assert result == nanoseconds
    assert type(result) is int


def test_a_stat_result_without_any_time_has_no_key() -> None:
    with pytest.raises(AttributeError) as raised:
        client_manifest._stat_nanoseconds(SimpleNamespace(), "st_mtime")  # type: ignore[arg-type]
    assert raised.value.name == "st_mtime"


def test_the_field_names_the_attribute() -> None:
    file_stat: Any = SimpleNamespace(st_birthtime_ns=3, st_atime=4)
    assert client_manifest._stat_nanoseconds(file_stat, "st_birthtime") == 3
    assert client_manifest._stat_nanoseconds(file_stat, "st_atime") == 4_000_000_000


def test_a_failing_time_attribute_passes_its_own_failure() -> None:
    class Failing:
        @property
        def st_mtime_ns(self) -> int:
            raise RuntimeError("clock is gone")

    with pytest.raises(RuntimeError, match="clock is gone"):
        client_manifest._stat_nanoseconds(Failing(), "st_mtime")  # type: ignore[arg-type]


def test_the_key_has_five_integers_in_order() -> None:
    assert client_manifest._regular_file_stat_key(stat_of()) == (11, 22, 33, 44, 55)


def test_the_attributes_are_read_in_the_order_of_the_key() -> None:
    file_stat: Any = Recording()
    assert client_manifest._regular_file_stat_key(file_stat) == (11, 22, 33, 44, 55)
    assert file_stat.asked == ["st_size", "st_mtime_ns", "st_ctime_ns", "st_dev", "st_ino"]


def test_the_key_of_a_file_on_disk_holds_the_host_values(tmp_path: Path) -> None:
    target = tmp_path / "file"
    target.write_bytes(b"twelve bytes")
    os.utime(target, ns=(1, 1_600_000_000_123_456_789))
    found = os.stat(target)
    assert client_manifest._regular_file_stat_key(found) == (
        12,
        1_600_000_000_123_456_789,
        found.st_ctime_ns,
        found.st_dev,
        found.st_ino,
    )


@pytest.mark.parametrize(
    ("missing", "key"),
    [
        (["st_dev"], (11, 22, 33, 0, 55)),
        (["st_ino"], (11, 22, 33, 44, 0)),
        (["st_dev", "st_ino"], (11, 22, 33, 0, 0)),
    ],
)
def test_a_missing_device_or_inode_counts_as_zero(missing: list[str], key: tuple[int, ...]) -> None:
    file_stat = stat_of(**{name: ... for name in missing})
    assert client_manifest._regular_file_stat_key(file_stat) == key


@pytest.mark.parametrize("missing", ["st_size", "st_mtime", "st_ctime"])
def test_size_and_times_must_exist(missing: str) -> None:
    file_stat = stat_of(**{missing: ..., f"{missing}_ns": ...})
    with pytest.raises(AttributeError) as raised:
        client_manifest._regular_file_stat_key(file_stat)
    assert raised.value.name == missing


def test_times_fall_back_to_seconds() -> None:
    file_stat = stat_of(st_mtime_ns=..., st_ctime_ns=..., st_mtime=1.25, st_ctime=2)
    key = client_manifest._regular_file_stat_key(file_stat)
    assert key == (11, 1_250_000_000, 2_000_000_000, 44, 55)


def test_every_element_goes_through_the_host_conversion() -> None:
    file_stat: Any = SimpleNamespace(**{name: Convertible(value) for name, value in FULL.items()})
    key = client_manifest._regular_file_stat_key(file_stat)
    assert key == (11, 22, 33, 44, 55)
    assert [type(element) for element in key] == [int] * 5


@pytest.mark.parametrize("name", ["st_size", "st_dev", "st_ino"])
def test_a_value_that_is_no_number_is_refused_by_the_host(name: str) -> None:
    with pytest.raises(TypeError):
        client_manifest._regular_file_stat_key(stat_of(**{name: None}))


def test_the_times_of_the_key_come_from_the_module_function(
    monkeypatch: pytest.MonkeyPatch,
) -> None:
    asked: list[str] = []

    def nanoseconds(file_stat: Any, field: str) -> int:
        asked.append(field)
        return 100 + len(asked)

    monkeypatch.setattr(client_manifest, "_stat_nanoseconds", nanoseconds)
    assert client_manifest._regular_file_stat_key(stat_of()) == (11, 101, 102, 44, 55)
    assert asked == ["st_mtime", "st_ctime"]


@given(st.lists(st.integers(), min_size=5, max_size=5))
def test_integers_of_any_size_are_kept_exactly(values: list[int]) -> None:
    file_stat: Any = SimpleNamespace(**dict(zip(FULL, values, strict=True)))
    assert client_manifest._regular_file_stat_key(file_stat) == tuple(values)
