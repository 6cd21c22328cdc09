"""Proves that each one-shot function pins, acts, proves and releases, in just these steps."""

from __future__ import annotations

from types import SimpleNamespace
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from path_level.members import (
    BY_DEFAULT,
    CREATING,
    HASH,
    IDENTIFY,
    MEMBERS,
    OTHERS,
    READ,
    WITH_A_PATH,
    WRITE,
    Member,
)
from path_level.recording import NO_FAILURE, Records, Step, stand_in_roots
from support.naming import named

ROOT = object()
DIGEST = "d" * 64

every_member = pytest.mark.parametrize("member", MEMBERS, ids=lambda member: member.function)
failures = pytest.mark.parametrize(
    "failure", [ValueError("no"), OSError(5, "no"), KeyboardInterrupt("no")], ids=named
)


@pytest.fixture
def records(monkeypatch: pytest.MonkeyPatch) -> Records:
    records = stand_in_roots(monkeypatch)
    records.results[0, "hash_regular_file"] = SimpleNamespace(sha256=DIGEST)
    return records


def steps_of(member: Member) -> list[Step]:
    """The steps of a call that succeeds."""
    pin = {"create": True} if member.creates else {}
    return [
        Step(0, "pin", (ROOT,), pin),
        Step(0, "enter"),
        Step(0, member.operation, member.passed_args, member.passed_keywords),
        Step(0, "prove"),
        *([Step(0, "path")] if member.creates else []),
        Step(0, "exit", NO_FAILURE),
    ]


@every_member
def test_a_call_takes_exactly_these_steps(member: Member, records: Records) -> None:
    member.call(ROOT)
    assert records.steps == steps_of(member)
    assert records.steps[0].args[0] is ROOT


@pytest.mark.parametrize("member", BY_DEFAULT, ids=lambda member: member.function)
def test_the_operation_is_given_the_default(member: Member, records: Records) -> None:
    member.call(ROOT)
    assert records.steps == steps_of(member)
    for name, value in member.passed_keywords.items():
        assert type(records.steps[2].keywords[name]) is type(value)


@every_member
def test_every_argument_may_be_given_by_keyword(member: Member, records: Records) -> None:
    names = ("relative_path", "payload")[: len(member.args)]
    function: Any = getattr(client_manifest, member.function)
    function(root=ROOT, **dict(zip(names, member.args)), **member.keywords)
    assert records.steps == steps_of(member)


@pytest.mark.parametrize(
    "member",
    [member for member in OTHERS if member is not HASH],
    ids=lambda member: member.function,
)
def test_the_result_is_that_of_the_operation(member: Member, records: Records) -> None:
    result = object()
    records.results[0, member.operation] = result
    assert member.call(ROOT) is result


def test_a_hash_is_the_digest_of_the_identity(records: Records) -> None:
    assert HASH.call(ROOT) is DIGEST


@pytest.mark.parametrize("member", CREATING, ids=lambda member: member.function)
def test_the_result_of_a_creating_operation_is_dropped(member: Member, records: Records) -> None:
    records.results[0, member.operation] = object()
    assert member.call(ROOT) == "/pinned/here/sub/leaf.bin"


@pytest.mark.parametrize(
    "member", [m for m in WITH_A_PATH if not m.creates], ids=lambda member: member.function
)
def test_the_arguments_are_passed_on_as_they_came(member: Member, records: Records) -> None:
    path: Any = object()
    keywords = {name: object() for name in member.keywords}
    member.call(ROOT, path, **keywords)
    step = records.steps[2]
    assert step.args[0] is path
    assert list(step.keywords) == list(member.passed_keywords)
    assert all(step.keywords[name] is value for name, value in keywords.items())


def test_a_payload_and_its_permission_are_passed_on_as_they_came(records: Records) -> None:
    payload, permission = bytearray(b"not judged here"), object()
    WRITE.call(ROOT, "a", payload, allow_replace=permission)
    assert records.steps[2].args[1] is payload
    assert records.steps[2].keywords["allow_replace"] is permission


@pytest.mark.parametrize("name", ["suffix", "prefixes"])
def test_a_selector_and_what_it_spares_are_passed_on_as_they_came(
    name: str, records: Records
) -> None:
    function = "" if name == "suffix" else "_in_prefixes"
    clean_up: Any = getattr(client_manifest, f"cleanup_contained_regular_files{function}")
    selector, spared = object(), object()
    clean_up(ROOT, preserve_relative_paths=spared, **{name: selector})
    assert records.steps[2].args == (selector,)
    assert records.steps[2].keywords == {"preserve_relative_paths": spared}


@failures
@every_member
def test_a_root_that_cannot_be_pinned_is_not_entered(
    member: Member, failure: BaseException, records: Records
) -> None:
    records.failing[0, "pin"] = failure
    with pytest.raises(type(failure)) as raised:
        member.call(ROOT)
    assert raised.value is failure
    assert records.names() == ["pin"]


@every_member
def test_a_root_that_cannot_be_entered_is_not_left(member: Member, records: Records) -> None:
    failure = records.failing[0, "enter"] = ValueError("no entry")
    with pytest.raises(ValueError) as raised:
        member.call(ROOT)
    assert raised.value is failure
    assert records.names() == ["pin", "enter"]


@failures
@every_member
def test_a_failing_operation_passes_through_the_exit(
    member: Member, failure: BaseException, records: Records
) -> None:
    records.failing[0, member.operation] = failure
    with pytest.raises(type(failure)) as raised:
        member.call(ROOT)
    assert raised.value is failure
    assert records.names() == ["pin", "enter", member.operation, "exit"]
    assert records.steps[-1].args[:2] == (type(failure), failure)
    assert records.steps[-1].args[2] is not None


@failures
@every_member
def test_a_failing_proof_drops_the_result(
    member: Member, failure: BaseException, records: Records
) -> None:
    records.failing[0, "prove"] = failure
    with pytest.raises(type(failure)) as raised:
        member.call(ROOT)
    assert raised.value is failure
    assert records.names() == ["pin", "enter", member.operation, "prove", "exit"]
    assert records.steps[-1].args[:2] == (type(failure), failure)


@every_member
def test_a_failing_exit_drops_the_result(member: Member, records: Records) -> None:
    failure = records.failing[0, "exit"] = ValueError("root is another")
    with pytest.raises(ValueError) as raised:
        member.call(ROOT)
    assert raised.value is failure
    assert records.steps == steps_of(member)
    assert raised.value.__context__ is None


@every_member
@pytest.mark.parametrize("name", ["operation", "prove"])
def test_a_failing_exit_replaces_the_first_failure(
    member: Member, name: str, records: Records
) -> None:
    step = member.operation if name == "operation" else name
    first = records.failing[0, step] = LookupError("first")
    failure = records.failing[0, "exit"] = ValueError("exit")
    with pytest.raises(ValueError) as raised:
        member.call(ROOT)
    assert raised.value is failure
    assert raised.value.__context__ is first


@every_member
def test_the_context_is_entered_by_the_methods_of_the_type(
    member: Member, records: Records, monkeypatch: pytest.MonkeyPatch
) -> None:
    def pin(*args: Any, **keywords: Any) -> Any:
        root: Any = records.pin(*args, **keywords)
        root.__enter__ = root.__exit__ = lambda *details: records.note(0, "never")
        return root

    monkeypatch.setattr(client_manifest, "PinnedRoot", pin)
    member.call(ROOT)
    assert records.steps == steps_of(member)


@every_member
def test_the_operation_is_done_on_what_the_context_gives(
    member: Member, records: Records, monkeypatch: pytest.MonkeyPatch
) -> None:
    class Context:
        def __enter__(self) -> Any:
            return records.pin(ROOT, **({"create": True} if member.creates else {})).__enter__()

        def __exit__(self, *details: Any) -> None:
            records.note(0, "exit", *details)

    monkeypatch.setattr(client_manifest, "PinnedRoot", lambda *args, **keywords: Context())
    member.call(ROOT)
    assert records.steps == steps_of(member)


def test_a_hash_identifies_through_the_module(
    records: Records, monkeypatch: pytest.MonkeyPatch
) -> None:
    seen: list[Any] = []

    def identify(*args: Any, **keywords: Any) -> Any:
        seen.append((args, keywords))
        return SimpleNamespace(sha256=digest)

    digest = object()
    monkeypatch.setattr(client_manifest, IDENTIFY.function, identify)
    assert HASH.call(ROOT) is digest
    assert seen == [((ROOT, *HASH.args), HASH.keywords)]
    assert records.steps == []


def test_each_call_pins_for_itself(records: Records) -> None:
    for number in range(3):
        READ.call(ROOT)
        assert records.steps[-1] == Step(number, "exit", NO_FAILURE)
    client_manifest.remove_contained_regular_file("elsewhere", "a")
    assert [step.args for step in records.steps if step.name == "pin"] == [
        (ROOT,),
        (ROOT,),
        (ROOT,),
        ("elsewhere",),
    ]
