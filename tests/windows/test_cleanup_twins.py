"""What the two cleanups meet on their way, told side by side where it differs and where not."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import pytest

from support.failures import fails_with
from windows.planted import Pin, at, files, planted, swap
from windows.volume import DIRECTORY_REPARSE, FILE_REPARSE, Volume

LEFT = "contained cleanup target leaf path changed during delete: {}"
LOST = "contained cleanup target parent or ancestor changed during delete: {}"
CHANGED = "contained cleanup directory or ancestor changed: {}"
UNSAFE = "contained directory is an unsafe reparse point: {}"
UNSAFE_TARGET = "contained cleanup target is an unsafe reparse point: {}"

# Both pick what lies at `yard/*.tmp`: the one by the end of the name, the other by the place.
CLEANUPS: dict[str, Callable[..., Any]] = {
    "suffix": lambda root, preserved=(): root.remove_regular_files_with_suffix(
        ".tmp", preserve_relative_paths=preserved
    ),
    "prefix": lambda root, preserved=(): root.remove_regular_files_in_prefixes(
        ("yard",), preserve_relative_paths=preserved
    ),
}


@pytest.fixture
def root(volume: Volume, pin: Pin) -> Any:
    return planted(volume, pin, {"yard/one.tmp": b"one"})


@pytest.fixture(params=list(CLEANUPS.values()), ids=list(CLEANUPS))
def clean(request: pytest.FixtureRequest) -> Any:
    return request.param


def test_a_picked_link_is_refused_and_stays(root: Any, volume: Volume, clean: Any) -> None:
    volume.plant({at("yard/link.tmp"): FILE_REPARSE})
    with fails_with(ValueError, UNSAFE_TARGET.format("yard/link.tmp")) as caught:
        clean(root)
    assert caught.error.__context__ is None
    assert volume.exists(at("yard/link.tmp"))
    assert clean(root, {"yard/link.tmp", "yard/one.tmp"}) == ()


def test_a_target_that_is_no_file_when_it_is_judged(
    root: Any, boundary: Any, volume: Volume, clean: Any
) -> None:
    """The kind is asked for twice: to choose the way, and once more in the judgement."""
    volume.remove(at("sub"))
    volume.remove(at("file.bin"))
    before = looks_before_target(root, boundary, clean)
    boundary.hook("kind", before + 2, returns="directory")
    text = "contained cleanup target must be a regular file: yard/one.tmp"
    with fails_with(ValueError, text):
        clean(root)
    assert volume.exists(at("yard/one.tmp"))


def looks_before_target(root: Any, boundary: Any, clean: Any) -> int:
    """How many kinds are asked for before that of the only file."""
    boundary.calls.clear()
    clean(root, {"yard/one.tmp"})
    names = boundary.names_called()
    opened = [index for index, name in enumerate(names) if name == "open_entry"]
    return int(names[: opened[1]].count("kind"))


def test_the_result_is_in_the_order_of_text_and_not_of_the_listing(
    root: Any, volume: Volume, clean: Any
) -> None:
    """The kernel lists without regard to case, and a directory's files before its neighbours."""
    names = ("b.tmp", "B2.tmp", "Z.tmp", "a.tmp", "in/x.tmp", "in-side.tmp")
    volume.plant({at(f"yard/{name}"): b"" for name in names})
    expected = tuple(sorted(f"yard/{name}" for name in (*names, "one.tmp")))
    assert clean(root) == expected


def test_a_junction_on_the_way_is_refused_and_not_skipped(
    root: Any, volume: Volume, clean: Any
) -> None:
    volume.plant({at("yard/junction"): DIRECTORY_REPARSE})
    with fails_with(ValueError, UNSAFE.format("yard/junction")):
        clean(root, {"yard/junction", "yard/one.tmp"})


def test_a_junction_elsewhere_stops_only_the_walk_that_enters_it(
    root: Any, volume: Volume
) -> None:
    volume.plant({at("elsewhere"): DIRECTORY_REPARSE})
    with fails_with(ValueError, UNSAFE.format("elsewhere")):
        CLEANUPS["suffix"](root, {"yard/one.tmp"})
    assert CLEANUPS["prefix"](root) == ("yard/one.tmp",)


def test_a_hidden_junction_stops_only_the_walk_that_sees_it(root: Any, volume: Volume) -> None:
    volume.plant({at("yard/.git"): DIRECTORY_REPARSE})
    with fails_with(ValueError, UNSAFE.format("yard/.git")):
        CLEANUPS["suffix"](root, {"yard/one.tmp"})
    assert CLEANUPS["prefix"](root) == ("yard/one.tmp",)


def test_a_hidden_entry_is_not_even_opened_by_the_one(
    root: Any, boundary: Any, volume: Volume
) -> None:
    volume.plant({at("yard/.hidden.tmp"): b"hidden"})
    boundary.calls.clear()
    assert CLEANUPS["prefix"](root) == ("yard/one.tmp",)
    opened = {call.args[1] for call in boundary.calls if call.name == "open_entry"}
    assert "one.tmp" in opened and ".hidden.tmp" not in opened
    assert CLEANUPS["suffix"](root) == ("yard/.hidden.tmp",)


def test_an_unpicked_link_is_left_alone(root: Any, volume: Volume, clean: Any) -> None:
    volume.plant({at("link"): FILE_REPARSE})
    assert clean(root) == ("yard/one.tmp",)
    assert volume.exists(at("link"))


def test_every_entry_is_opened_so_that_it_could_be_deleted(
    root: Any, boundary: Any, clean: Any
) -> None:
    boundary.calls.clear()
    clean(root, {"yard/one.tmp"})
    opened = [call for call in boundary.calls if call.name == "open_entry"]
    assert {"file.bin", "sub", "yard"} <= {call.args[1] for call in opened}
    assert all(call.kwargs == {"delete": True} for call in opened)
    assert "delete" not in boundary.names_called()


def test_an_entry_that_goes_while_it_is_listed_ends_the_walk(
    root: Any, volume: Volume, boundary: Any, clean: Any
) -> None:
    boundary.hook("list_names", 1, after=lambda: volume.remove(at("file.bin")))
    with fails_with(FileNotFoundError, "file.bin") as caught:
        clean(root)
    assert caught.error.__context__ is None


def test_an_entry_under_deletion_ends_the_walk(root: Any, volume: Volume, clean: Any) -> None:
    let_go = volume.pend(at("yard/one.tmp"))
    with fails_with(FileNotFoundError, "one.tmp"):
        clean(root)
    let_go()
    assert clean(root) == ()


def test_a_name_that_is_taken_again_is_told(
    root: Any, volume: Volume, boundary: Any, clean: Any
) -> None:
    def taken() -> None:
        volume.move(at("yard/one.tmp"), "aside")
        volume.plant({at("yard/one.tmp"): b"foreign"})

    boundary.hook("delete", 1, after=taken)
    with fails_with(ValueError, LEFT.format("yard/one.tmp")):
        clean(root)
    assert files(volume)["yard/one.tmp"] == b"foreign"
    assert not volume.exists("aside")


def test_a_directory_that_goes_with_its_target_is_told(
    root: Any, volume: Volume, boundary: Any, clean: Any
) -> None:
    boundary.hook("delete", 1, after=lambda: volume.move(at("yard"), "aside"))
    with fails_with(ValueError, LOST.format("yard/one.tmp"), cause=FileNotFoundError):
        clean(root)
    assert not volume.exists("aside/one.tmp")


@pytest.mark.parametrize("when", ["before", "after"])
def test_a_directory_is_proved_before_and_after_it_is_read(
    root: Any, volume: Volume, boundary: Any, clean: Any, when: str
) -> None:
    volume.remove(at("sub"))
    if when == "before":
        boundary.hook("open_entry", 2, after=lambda: swap(volume, at("yard")))
    else:
        boundary.hook("list_names", 2, after=lambda: swap(volume, at("yard")))
    with fails_with(ValueError, CHANGED.format("yard")):
        clean(root, {"yard/one.tmp"})


def test_the_root_is_proved_against_its_own_handle(
    root: Any, volume: Volume, boundary: Any, clean: Any
) -> None:
    """The pinned handle is what the empty path names: where it lies now is another proof's."""
    volume.move("data", "aside")
    assert clean(root) == ("yard/one.tmp",)
    boundary.hook("identity", 1, returns=(1, b"other"))
    with fails_with(ValueError, CHANGED.format(".")):
        clean(root)


def test_a_listing_that_fails_passes_as_it_is(root: Any, boundary: Any, clean: Any) -> None:
    boundary.hook("list_names", 1, raises=OSError(5, "unreadable"))
    with fails_with(OSError, "[Errno 5] unreadable"):
        clean(root)


def test_what_went_before_a_failure_stays_gone(
    root: Any, volume: Volume, boundary: Any, clean: Any
) -> None:
    volume.plant({at("yard/two.tmp"): b"two"})
    boundary.hook("delete", 2, raises=PermissionError(13, "held"))
    with fails_with(PermissionError, "[Errno 13] held"):
        clean(root)
    assert len([path for path in files(volume) if path.startswith("yard/")]) == 1


def test_a_held_file_goes_and_the_holder_keeps_its_bytes(
    root: Any, volume: Volume, clean: Any
) -> None:
    """Its name reads as missing at once; the kernel frees it when the last handle closes."""
    with root.open_regular_file_for_read("yard/one.tmp", label="held") as held:
        assert clean(root) == ("yard/one.tmp",)
        assert held.read() == b"one"
    assert not volume.exists(at("yard/one.tmp"))


def test_a_walk_holds_one_handle_a_level(
    root: Any, volume: Volume, boundary: Any, clean: Any
) -> None:
    volume.remove(at("yard/one.tmp"))
    volume.plant({at("yard/a/b/c/deep.tmp"): b"deep"})
    held: list[int] = []
    boundary.hook("delete", 1, before=lambda: held.append(len(volume.open_handles)))
    assert clean(root) == ("yard/a/b/c/deep.tmp",)
    # The pin, its duplicate, four directories and the file itself.
    assert held == [7]
