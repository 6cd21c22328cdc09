"""Every operation calls its parts through the instance, in a fixed order and fixed words."""

from __future__ import annotations

from collections.abc import Iterator
from pathlib import Path
from typing import Any

import pytest

from brindlefen.distribution.client_manifest import ContainedFileIdentity, PinnedRoot
from pinned_root.recording import Call, names_of, recording_class
from support.descriptors import descriptors_kept

PATH = "sub/inner.bin"

PARENT_WALK = ["_open_parent", "_require_descriptor"]
ROOT_PROOF = ["assert_root_unchanged", "_open_absolute_directory", "_require_descriptor"]
CHILD_PROOF = ["assert_root_unchanged", "_open_directory_components", "_require_descriptor"]
OPEN = ["open_regular_file_for_read", *PARENT_WALK]
PATH_PROOF = ["_assert_path_matches_regular_file", *PARENT_WALK]
READ = [
    "read_regular_file_with_stat",
    *OPEN,
    "_read_open_regular_file_with_stat",
    *PATH_PROOF,
    *ROOT_PROOF,
]
HASH_OPEN = [
    "hash_open_regular_file",
    "assert_open_regular_file_identity",
    *PATH_PROOF,
    *ROOT_PROOF,
]


@pytest.fixture
def recorded(tree: Path) -> Iterator[Any]:
    """A root of a recording class, whose calls of the pinning have been dropped."""
    recorded: Any = recording_class()(tree)
    recorded.calls.clear()
    yield recorded
    recorded.close()


def test_the_pin_is_made_by_the_absolute_walk(tree: Path) -> None:
    for create in (False, True):
        kind: Any = recording_class()
        root = kind(tree, create=create)
        assert kind.calls == [Call("_open_absolute_directory", (tree,), {"create": create})]
        root.close()


def test_the_proof_of_an_absolute_root(recorded: Any, tree: Path) -> None:
    recorded.assert_root_unchanged()
    assert recorded.calls == [
        Call("assert_root_unchanged", (), {}),
        Call("_open_absolute_directory", (tree,), {"create": False}),
        Call("_require_descriptor", (), {}),
    ]


@pytest.mark.parametrize("label", ["child", ""])
def test_the_proof_of_a_contained_root(recorded: Any, label: str) -> None:
    child = recorded.open_contained_root("sub/deep", label=label)
    recorded.calls.clear()
    child.assert_root_unchanged()
    assert recorded.calls == [
        Call("assert_root_unchanged", (), {}),
        Call(
            "_open_directory_components",
            (child._anchor_descriptor, ("sub", "deep")),
            {"label": label or "contained root"},
        ),
        Call("_require_descriptor", (), {}),
    ]
    child.close()


def test_a_child_is_opened_between_the_proofs_of_both(recorded: Any) -> None:
    child = recorded.open_contained_root("sub", label="")
    assert names_of(recorded.calls) == [
        "open_contained_root",
        *ROOT_PROOF,
        "_require_descriptor",
        "_open_directory_components",
        *CHILD_PROOF,
    ]
    opened, proved = (
        call for call in recorded.calls if call.name == "_open_directory_components"
    )
    assert opened == Call(
        "_open_directory_components", (child._anchor_descriptor, ("sub",)), {"label": ""}
    )
    assert proved.keywords == {"label": "contained root"}
    child.close()


def test_a_grandchild_is_opened_from_the_anchor(recorded: Any) -> None:
    child = recorded.open_contained_root("sub", label="child")
    recorded.calls.clear()
    grandchild = child.open_contained_root("deep", label="grandchild")
    assert names_of(recorded.calls) == [
        "open_contained_root",
        *CHILD_PROOF,
        "_open_directory_components",
        *CHILD_PROOF,
    ]
    assert [
        call.args[1] for call in recorded.calls if call.name == "_open_directory_components"
    ] == [("sub",), ("sub", "deep"), ("sub", "deep")]
    grandchild.close()
    child.close()


@pytest.mark.parametrize(
    ("operation", "expected"),
    [
        ("read_regular_file", ["read_regular_file", *READ]),
        ("read_regular_file_with_stat", READ),
        (
            "read_regular_file_if_present",
            ["read_regular_file_if_present", "read_regular_file", *READ],
        ),
        ("hash_regular_file", ["hash_regular_file", *OPEN, *HASH_OPEN]),
        ("stat_regular_file", ["stat_regular_file", *OPEN, *PATH_PROOF, *ROOT_PROOF]),
    ],
)
def test_the_order_of_the_calls_of_each_operation(
    recorded: Any, operation: str, expected: list[str]
) -> None:
    with descriptors_kept():
        getattr(recorded, operation)(PATH, label="file")
    assert names_of(recorded.calls) == expected


def by_name(recorded: Any, name: str) -> Call:
    """The one call of `name` that was recorded."""
    calls: list[Call] = recorded.calls
    (call,) = (call for call in calls if call.name == name)
    return call


def test_the_arguments_within_a_read(recorded: Any) -> None:
    recorded.read_regular_file_if_present(PATH, label="file")
    label = {"label": "file"}
    assert by_name(recorded, "read_regular_file") == ("read_regular_file", (PATH,), label)
    assert by_name(recorded, "read_regular_file_with_stat")[1:] == ((PATH,), label)
    assert by_name(recorded, "open_regular_file_for_read")[1:] == ((PATH,), label)
    consumed = by_name(recorded, "_read_open_regular_file_with_stat")
    assert consumed.args[1:] == (PATH,) and consumed.keywords == label
    assert consumed.args[0].closed
    proof = by_name(recorded, "_assert_path_matches_regular_file")
    assert proof.args == (PATH,)
    assert list(proof.keywords) == ["label", "expected_stat"]
    assert proof.keywords["expected_stat"].st_size == 11
    walks = [call for call in recorded.calls if call.name == "_open_parent"]
    assert walks == [Call("_open_parent", (PATH,), {"label": "file", "create": False})] * 2
    assert by_name(recorded, "assert_root_unchanged")[1:] == ((), {})


def test_the_path_is_proved_against_the_stat_result_that_is_given(recorded: Any) -> None:
    _, found = recorded.read_regular_file_with_stat(PATH, label="file")
    proof = by_name(recorded, "_assert_path_matches_regular_file")
    assert proof.keywords["expected_stat"] is found
    recorded.calls.clear()
    found = recorded.stat_regular_file(PATH, label="file")
    proof = by_name(recorded, "_assert_path_matches_regular_file")
    assert proof.keywords["expected_stat"] is found


@pytest.mark.parametrize("chunk", [1_048_576, 5])
def test_the_arguments_within_a_hash(recorded: Any, chunk: int) -> None:
    keywords: dict[str, Any] = {"label": "file"}
    if chunk == 5:
        keywords["chunk_bytes"] = 5
    identity = recorded.hash_regular_file(PATH, **keywords)
    consumed = by_name(recorded, "hash_open_regular_file")
    assert consumed.args[1:] == (PATH,)
    assert consumed.keywords == {"label": "file", "chunk_bytes": chunk}
    recheck = by_name(recorded, "assert_open_regular_file_identity")
    assert recheck.args == (consumed.args[0], PATH)
    assert recheck.keywords == {"label": "file", "identity": identity}
    assert recheck.keywords["identity"] is identity


def test_leaving_a_block_proves_and_closes(tree: Path) -> None:
    kind: Any = recording_class()
    with kind(tree) as root:
        kind.calls.clear()
    assert names_of(kind.calls) == [*ROOT_PROOF, "close"]
    kind.calls.clear()
    root.__exit__(None, None, None)
    assert names_of(kind.calls) == ["close"]


def test_an_attribute_of_the_instance_shadows_the_operation(root: Any) -> None:
    """The lookup is the host's: an attribute set on one instance is called by that one."""
    seen: list[tuple[Any, ...]] = []

    def instead(*args: Any, **keywords: Any) -> Any:
        seen.append((args, keywords))
        return b"in its stead", None

    root.read_regular_file_with_stat = instead
    assert root.read_regular_file("../not judged here", label="file") == b"in its stead"
    assert seen == [(("../not judged here",), {"label": "file"})]


def test_every_step_of_a_read_can_be_shadowed(root: Any) -> None:
    seen: list[str] = []

    def shadow(name: str) -> None:
        base = getattr(root, name)

        def instead(*args: Any, **keywords: Any) -> Any:
            seen.append(name)
            return base(*args, **keywords)

        setattr(root, name, instead)

    for name in dict.fromkeys([*READ, "_open_absolute_directory", "_require_descriptor"]):
        shadow(name)
    assert root.read_regular_file(PATH, label="file") == b"inner bytes"
    assert seen == READ


@pytest.mark.parametrize(
    ("operation", "expected"),
    [
        ("read_regular_file", ["read_regular_file", *READ]),
        ("hash_regular_file", ["hash_regular_file", *OPEN, *HASH_OPEN]),
        ("stat_regular_file", ["stat_regular_file", *OPEN, *PATH_PROOF, *ROOT_PROOF]),
    ],
)
def test_what_a_lookup_hook_puts_in_the_place_of_an_operation_is_called(
    tree: Path, operation: str, expected: list[str]
) -> None:
    called: list[str] = []

    class Hooked(PinnedRoot):
        def __getattribute__(self, name: str) -> Any:
            found = super().__getattribute__(name)
            if name not in expected:
                return found

            def instead(*args: Any, **keywords: Any) -> Any:
                called.append(name)
                return found(*args, **keywords)

            return instead

    with Hooked(tree) as root:
        called.clear()
        getattr(root, operation)(PATH, label="file")
        assert called == expected


def test_a_lookup_hook_that_fails_ends_the_operation(tree: Path) -> None:
    class Hooked(PinnedRoot):
        armed = False

        def __getattribute__(self, name: str) -> Any:
            if name == "assert_root_unchanged" and Hooked.armed:
                raise KeyError(name)
            return super().__getattribute__(name)

    with Hooked(tree) as root:
        Hooked.armed = True
        for operation in (root.read_regular_file, root.hash_regular_file, root.stat_regular_file):
            with descriptors_kept(), pytest.raises(KeyError):
                operation(PATH, label="file")
        Hooked.armed = False


def test_an_operation_added_to_the_class_later_is_called(
    root: PinnedRoot, monkeypatch: pytest.MonkeyPatch
) -> None:
    calls: list[str] = []
    base = PinnedRoot.assert_root_unchanged

    def instead(self: PinnedRoot) -> None:
        calls.append("proof")
        base(self)

    with monkeypatch.context() as patch:
        try:
            patch.setattr(PinnedRoot, "assert_root_unchanged", instead)
        except TypeError:
            pytest.fail("the class does not take new attributes, unlike a plain class")
        root.read_regular_file(PATH, label="file")
        root.hash_regular_file(PATH, label="file")
        root.stat_regular_file(PATH, label="file")
    assert calls == ["proof"] * 3
    root.read_regular_file(PATH, label="file")
    assert calls == ["proof"] * 3


def test_results_of_overridden_parts_are_handed_on(tree: Path) -> None:
    identity = ContainedFileIdentity(1, "x", 2, 3, 4, 5)

    class Handing(PinnedRoot):
        def hash_open_regular_file(self, file: Any, *args: Any, **keywords: Any) -> Any:
            assert file.read() == b"inner bytes"
            return identity

        def _read_open_regular_file_with_stat(self, *args: Any, **keywords: Any) -> Any:
            return ["bytes", "stat"]

    root: Any
    with Handing(tree) as root, descriptors_kept():
        assert root.hash_regular_file(PATH, label="file") is identity
        assert root.read_regular_file_with_stat(PATH, label="file") == ["bytes", "stat"]
        assert root.read_regular_file(PATH, label="file") == "bytes"
        assert root.read_regular_file_if_present(PATH, label="file") == "bytes"
