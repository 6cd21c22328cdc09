"""Values that lie or raise, from the caller or the boundary, end in a failure and never worse."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import pytest

from brindlefen.distribution import client_manifest
from pinned_root.hostile import Own, raise_own
from support.failures import fails_with
from windows.planted import FILES, PATH, Pin, at, files, planted
from windows.step_tables import OPERATIONS
from windows.substitute import SubstituteBoundary
from windows.volume import Volume


class HostileText(str):
    """Text whose own methods raise; what it holds can only be read as text."""

    __eq__ = __contains__ = __len__ = __iter__ = __getitem__ = raise_own
    split = strip = startswith = endswith = rstrip = raise_own
    __hash__ = str.__hash__


class LyingText(str):
    """Text that tells other things of itself than it holds."""

    def __str__(self) -> str:
        return "../outside"

    def __format__(self, form: str) -> str:
        return "../outside"


class HostileBytes(bytes):
    """Bytes whose own methods raise."""

    __len__ = __iter__ = __getitem__ = __eq__ = raise_own
    __hash__ = bytes.__hash__


class Truth:
    """Raises when it is asked whether it is true."""

    def __bool__(self) -> bool:
        raise Own("mine")


@pytest.fixture
def root(volume: Volume, pin: Pin) -> Any:
    return planted(volume, pin)


Action = Callable[[Any, Any], object]
BY_PATH: dict[str, Action] = {
    "write": lambda root, path: root.write_atomic(path, b"new", allow_replace=True),
    "update": lambda root, path: root.open_regular_file_for_update(path, create=True).close(),
    "open": lambda root, path: root.open_regular_file_for_read(path, label="file").close(),
    "remove": lambda root, path: root.remove_regular_file(path, missing_ok=True),
    "replace": lambda root, path: root.replace_regular_file(path, path),
    "move": lambda root, path: root.move_regular_file_to(path, root, path),
    "suffix": lambda root, path: root.remove_regular_files_with_suffix(
        path, preserve_relative_paths=[path]
    ),
    "prefix": lambda root, path: root.remove_regular_files_in_prefixes(
        [path], preserve_relative_paths=[path]
    ),
    "ensure": lambda root, path: root.ensure_directory(path),
    "tree": lambda root, path: root.remove_directory_tree(path, missing_ok=True),
}


@pytest.mark.parametrize("kind", [HostileText, LyingText])
@pytest.mark.parametrize("name", BY_PATH)
def test_a_path_that_raises_or_lies_leads_nowhere_else(
    root: Any, volume: Volume, name: str, kind: type[str]
) -> None:
    """It is refused, raises its own, or is taken for what it holds; no other file is touched."""
    volume.plant({"outside": b"outside"})
    held = volume.open_handles
    try:
        BY_PATH[name](root, kind("file.bin"))
    except (Own, ValueError, OSError):
        pass
    left = {path: found for path, found in files(volume).items() if path != "file.bin"}
    assert left == {path: found for path, found in FILES.items() if path != "file.bin"}
    assert volume.read("outside") == b"outside" and volume.open_handles == held


@pytest.mark.parametrize("name", BY_PATH)
@pytest.mark.parametrize("path", ["sub/\udcff", "\ud800", "n" * 300, "a:b", 'a"b', "a\nb"])
def test_a_name_that_the_volume_may_not_take_ends_in_a_failure_or_well(
    root: Any, volume: Volume, name: str, path: str
) -> None:
    held = volume.open_handles
    try:
        BY_PATH[name](root, path)
    except (ValueError, OSError):
        pass
    assert volume.open_handles == held
    assert {key: found for key, found in files(volume).items() if key in FILES} == FILES


def test_bytes_of_a_hostile_class_are_written_as_they_are_or_raise_their_own(
    root: Any, volume: Volume
) -> None:
    try:
        root.write_atomic("new", HostileBytes(b"payload"), allow_replace=False)
    except Own:
        assert files(volume) == FILES
    else:
        assert volume.read(at("new")) == b"payload"


FLAGS: dict[str, Action] = {
    "write": lambda root, flag: root.write_atomic(PATH, b"new", allow_replace=flag),
    "remove": lambda root, flag: root.remove_regular_file("sub/absent", missing_ok=flag),
    "remove below": lambda root, flag: root.remove_regular_file("absent/leaf", missing_ok=flag),
    "tree": lambda root, flag: root.remove_directory_tree("sub/absent", missing_ok=flag),
    "tree below": lambda root, flag: root.remove_directory_tree("absent/leaf", missing_ok=flag),
}


@pytest.mark.parametrize("name", FLAGS)
def test_a_flag_that_raises_raises_its_own(root: Any, volume: Volume, name: str) -> None:
    held = volume.open_handles
    with pytest.raises(Own):
        FLAGS[name](root, Truth())
    assert files(volume) == FILES and volume.open_handles == held


class Label:
    """Raises when it is put into a message."""

    def __format__(self, form: str) -> str:
        raise Own("mine")


def test_a_label_that_raises_raises_its_own_and_only_in_a_message(root: Any) -> None:
    root.open_regular_file_for_read(PATH, label=Label()).close()
    with pytest.raises(Own):
        root.open_regular_file_for_read("sub", label=Label())


class Differing:
    """Differs from all, or raises when it is compared."""

    def __init__(self, raises: bool) -> None:
        self._raises = raises

    def __eq__(self, other: object) -> bool:
        if self._raises:
            raise Own("mine")
        return False

    __hash__ = None  # type: ignore[assignment]


@pytest.mark.parametrize("raises", [True, False])
def test_a_noted_identity_is_compared_by_the_host(
    root: Any, volume: Volume, raises: bool
) -> None:
    root._pending_update_identities[PATH] = Differing(raises)
    text = f"contained replacement source identity changed: {PATH}"
    if raises:
        with pytest.raises(Own):
            root.replace_regular_file(PATH, "new")
    else:
        with fails_with(ValueError, text):
            root.replace_regular_file(PATH, "new")
    assert files(volume) == FILES


ODD: tuple[Any, ...] = (None, "text", -1, 10**30, 1.5, (), object())


@pytest.mark.parametrize("name", OPERATIONS)
def test_a_boundary_that_answers_with_nonsense_ends_in_a_failure_or_well(name: str) -> None:
    """Each call in turn gets an answer of no use; the process and its descriptors are unhurt."""
    operation = OPERATIONS[name]
    for number, step in enumerate(operation.steps):
        if step.name in ("close", "delete", "rename"):
            continue
        volume = Volume()
        volume.plant({f"data/{path}": found for path, found in operation.before.items()})
        boundary = SubstituteBoundary(volume)
        root: Any = client_manifest._WindowsPinnedRoot("C:\\data", _boundary=boundary)
        nth = [step.name for step in operation.steps[: number + 1]].count(step.name)
        boundary.hook(step.name, nth, returns=ODD[number % len(ODD)])
        try:
            operation.run(root)
        except Exception:
            pass
        assert boundary.unspent_hooks == []
        volume.dispose()


def test_a_listing_of_nonsense_ends_in_a_failure(root: Any, volume: Volume, boundary: Any) -> None:
    held = volume.open_handles
    actions: list[Callable[[], object]] = [
        lambda: root.remove_regular_files_with_suffix("x", preserve_relative_paths=()),
        lambda: root.remove_regular_files_in_prefixes(("sub",), preserve_relative_paths=()),
        lambda: root.remove_directory_tree("sub", missing_ok=False),
    ]
    for names in ((None,), (5,), 5, None, ("",), ("a/b",), (b"file.bin",)):
        for action in actions:
            boundary.hook("list_names", 1, returns=names)
            try:
                action()
            except (TypeError, ValueError, OSError, AttributeError):
                pass
            assert volume.open_handles == held and boundary.unspent_hooks == []
            assert files(volume) == FILES
