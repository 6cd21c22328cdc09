"""Proves the one choice of the pinned-root class, and that it looks its names up when it runs."""

from __future__ import annotations

from collections.abc import Callable
from types import SimpleNamespace

import pytest
from brindlefen.distribution import client_manifest

from support.failures import fails_with

choose: Callable[..., type] = client_manifest._pinned_root_class


class Windows:
    """Takes the place of the class of the other platform."""


class Boom(Exception):
    """Raised by the hostile names below."""


class Name:
    """A name whose comparison gives a fixed answer, and which records what it met."""

    def __init__(self, answer: object) -> None:
        self.answer = answer
        self.met: list[object] = []

    def __eq__(self, other: object) -> object:  # type: ignore[override]
        self.met.append(other)
        if isinstance(self.answer, Exception):
            raise self.answer
        return self.answer


class Untestable:
    """An answer that has no truth value."""

    def __bool__(self) -> bool:
        raise Boom("no truth")


@pytest.fixture
def windows(monkeypatch: pytest.MonkeyPatch) -> type:
    monkeypatch.setattr(client_manifest, "_WindowsPinnedRoot", Windows)
    return Windows


def test_nt_gives_the_class_for_windows_on_any_platform() -> None:
    assert choose("nt") is client_manifest._WindowsPinnedRoot
    assert choose(platform_name="nt") is client_manifest._WindowsPinnedRoot
    assert issubclass(client_manifest._WindowsPinnedRoot, client_manifest._PosixPinnedRoot)


def test_the_hosts_own_name_gives_the_class_for_windows(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(client_manifest, "os", SimpleNamespace(name="nt"))
    assert choose() is client_manifest._WindowsPinnedRoot
    assert choose(None) is client_manifest._WindowsPinnedRoot


@pytest.mark.parametrize(
    "name", ["posix", "", "NT", "nt ", "nt\0", "n", "java", "\ud800", 0, 1, b"nt", ("nt",), False]
)
def test_any_other_name_gives_the_posix_class(windows: type, name: object) -> None:
    assert choose(name) is client_manifest._PosixPinnedRoot


def test_nt_gives_the_class_bound_at_that_moment(windows: type) -> None:
    assert choose("nt") is windows
    assert choose(platform_name="nt") is windows


def test_nt_built_at_run_time_is_still_nt(windows: type) -> None:
    assert choose("".join(["n", "t"])) is windows


def test_a_text_subclass_is_judged_by_its_value(windows: type) -> None:
    assert choose(type("Text", (str,), {})("nt")) is windows


def test_nt_without_its_class_is_an_unbound_name(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.delattr(client_manifest, "_WindowsPinnedRoot")
    with fails_with(NameError, "name '_WindowsPinnedRoot' is not defined"):
        choose("nt")


def test_no_name_agrees_with_the_choice_made_at_load() -> None:
    assert choose() is client_manifest.PinnedRoot
    assert choose(None) is client_manifest.PinnedRoot


def test_no_name_follows_the_hosts_own(monkeypatch: pytest.MonkeyPatch, windows: type) -> None:
    monkeypatch.setattr(client_manifest, "os", SimpleNamespace(name="nt"))
    assert choose() is windows
    assert choose(None) is windows
    assert choose("posix") is client_manifest._PosixPinnedRoot


@pytest.mark.parametrize("name", ["", 0, False, ()])
def test_an_empty_name_is_a_name_and_not_the_lack_of_one(
    monkeypatch: pytest.MonkeyPatch, windows: type, name: object
) -> None:
    monkeypatch.setattr(client_manifest, "os", SimpleNamespace(name="nt"))
    assert choose(name) is client_manifest._PosixPinnedRoot


def test_a_change_of_the_hosts_name_is_seen(monkeypatch: pytest.MonkeyPatch, windows: type) -> None:
    with monkeypatch.context() as patch:
        patch.setattr(client_manifest.os, "name", "nt")  # type: ignore[attr-defined]
        chosen = choose()
    assert chosen is windows
    assert choose() is client_manifest._PosixPinnedRoot


def test_a_given_name_needs_no_host(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.delattr(client_manifest, "os")
    assert choose("posix") is client_manifest._PosixPinnedRoot
    with fails_with(NameError, "name 'os' is not defined"):
        choose()


def test_the_choice_is_not_made_again_after_the_load(
    monkeypatch: pytest.MonkeyPatch, windows: type
) -> None:
    monkeypatch.setattr(client_manifest, "os", SimpleNamespace(name="nt"))
    choose()
    assert client_manifest.PinnedRoot is client_manifest._PosixPinnedRoot


def test_the_posix_class_is_looked_up_too(monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr(client_manifest, "_PosixPinnedRoot", Windows)
    assert choose("posix") is Windows


@pytest.mark.parametrize("answer", [True, 1, "yes", [0]])
def test_a_name_that_compares_equal_is_nt(windows: type, answer: object) -> None:
    name = Name(answer)
    assert choose(name) is windows
    assert name.met == ["nt"]


@pytest.mark.parametrize("answer", [False, 0, "", NotImplemented])
def test_a_name_that_compares_unequal_is_not(windows: type, answer: object) -> None:
    assert choose(Name(answer)) is client_manifest._PosixPinnedRoot


def test_a_comparison_that_raises_ends_the_choice(windows: type) -> None:
    with fails_with(Boom, "no comparison"):
        choose(Name(Boom("no comparison")))


def test_an_answer_without_a_truth_value_ends_the_choice(windows: type) -> None:
    with fails_with(Boom, "no truth"):
        choose(Name(Untestable()))
