"""The shim itself, shown on the host's own calls: what it records, makes fail, and leaves alone."""

from __future__ import annotations

import errno
import os
import subprocess
import sys
import threading
from pathlib import Path

import pytest

from faults.injection import Exchange, Rename, Symlink, Touch, Unlink, armed
from faults.trace import DIRECTORY_FLAGS, LEAF_FLAGS, essential, require_single_closes


@pytest.fixture()
def directory(tmp_path: Path) -> Path:
    (tmp_path / "file").write_bytes(b"content")
    return tmp_path


def test_the_hosts_calls_are_recorded_with_all_that_they_were_given(directory: Path) -> None:
    with armed() as shim:
        above = os.open(directory, DIRECTORY_FLAGS)
        file = os.open("file", LEAF_FLAGS, dir_fd=above)
        os.fstat(file)
        os.lseek(file, 2, os.SEEK_SET)
        os.read(file, 3)
        os.read(file, 100)
        os.read(file, 100)
        os.stat("file", dir_fd=above, follow_symlinks=False)
        os.mkdir("new", 0o755, dir_fd=above)
        os.fsync(above)
        os.close(os.dup(above))
        os.close(file)
        os.close(above)
    assert essential(shim.calls, {}) == [
        f"open {directory} directory",
        f"openat {directory} file leaf",
        f"fstat {directory}/file",
        f"read {directory}/file 5 bytes",
        f"fstatat {directory} file nofollow",
        f"mkdirat {directory} new 755",
        f"fsync {directory}",
        f"dup {directory}",
        f"close {directory}*",
        f"close {directory}/file",
        f"close {directory}",
    ]


def test_calls_that_change_names_are_recorded_with_both_names(directory: Path) -> None:
    above = os.open(directory, DIRECTORY_FLAGS)
    with armed() as shim:
        os.link("file", "other", src_dir_fd=above, dst_dir_fd=above)
        os.rename("other", "third", src_dir_fd=above, dst_dir_fd=above)
        os.unlink("third", dir_fd=above)
        os.listdir(above)
        os.close(above)
    told = [(call.kind, call.name, call.other_name) for call in shim.calls]
    assert told[:3] == [
        ("linkat", "file", "other"), ("renameat", "other", "third"), ("unlinkat", "third", ""),
    ]  # fmt: skip
    assert {"dup", "fdopendir", "readdir", "closedir"} <= {kind for kind, _, _ in told[3:]}


def test_a_failing_call_is_not_made(directory: Path) -> None:
    with armed() as shim, pytest.raises(OSError) as caught:
        shim.fail("mkdirat", 1, errno.ENOSPC)
        above = os.open(directory, DIRECTORY_FLAGS)
        try:
            os.mkdir("new", dir_fd=above)
        finally:
            os.close(above)
    assert caught.value.errno == errno.ENOSPC
    assert not (directory / "new").exists()


def test_a_close_can_fail_with_its_descriptor_released_or_kept(directory: Path) -> None:
    for fail_after in (True, False):
        file = os.open(directory / "file", os.O_RDONLY)
        with armed() as shim, pytest.raises(OSError, match="Input/output error"):
            (shim.fail_after if fail_after else shim.fail)("close", 1, errno.EIO)
            os.close(file)
        if fail_after:
            with pytest.raises(OSError, match="Bad file descriptor"):
                os.fstat(file)
        else:
            os.close(file)


def test_a_second_close_of_one_number_is_noticed(directory: Path) -> None:
    file = os.open(directory / "file", os.O_RDONLY)
    with armed() as shim, pytest.raises(OSError, match="Bad file descriptor"):
        os.close(file)
        os.close(file)
    with pytest.raises(AssertionError, match="a second time"):
        require_single_closes(shim.calls)


def test_a_read_can_be_short_and_a_mode_pretended(directory: Path) -> None:
    file = os.open(directory / "file", os.O_RDONLY)
    with armed() as shim:
        shim.shorten("read", 1, 2)
        shim.pretend_mode("fstat", 1, 0o10644)
        content = os.read(file, 100)
        mode = os.fstat(file).st_mode
    os.close(file)
    assert (content, mode) == (b"co", 0o10644)


def test_a_call_can_report_a_success_that_never_was(directory: Path) -> None:
    above = os.open(directory, DIRECTORY_FLAGS)
    file = os.open(directory / "file", os.O_WRONLY)
    with armed() as shim:
        shim.skip("unlinkat", 1)
        shim.skip("write", 1)
        os.unlink("file", dir_fd=above)
        assert os.write(file, b"lost") == 0
    os.close(file)
    os.close(above)
    assert (directory / "file").read_bytes() == b"content"


def test_a_listing_is_recorded_with_its_names_and_can_lose_their_types(directory: Path) -> None:
    (directory / "sub").mkdir()
    above = os.open(directory, DIRECTORY_FLAGS)
    typed = []
    for forgets in (False, True):
        with armed() as shim:
            if forgets:
                shim.forget_type(0)
            with os.scandir(above) as entries:
                typed.append(sorted(entry.name for entry in entries if entry.is_dir()))
        looks = [call.name for call in shim.calls if call.kind == "fstatat"]
        assert sorted(looks) == (["file", "sub"] if forgets else [])
        names = {call.name for call in shim.calls if call.kind == "readdir"}
        assert names == {".", "..", "", "file", "sub"}
    os.close(above)
    assert typed == [["sub"], ["sub"]]


def test_a_listing_can_fail_on_its_way(directory: Path) -> None:
    with armed() as shim, pytest.raises(OSError, match="Input/output error"):
        shim.fail("readdir", 2, errno.EIO)
        os.listdir(directory)


def test_the_disk_changes_at_the_very_call(directory: Path) -> None:
    file, other, link = directory / "file", directory / "other", directory / "link"
    other.write_bytes(b"the other content")
    descriptor = os.open(file, os.O_RDONLY)
    seen: list[bool] = []
    with armed() as shim:
        shim.before("fstat", 1, Touch(file, 1_000_000_000))
        shim.after("fstat", 1, Symlink(file, link))
        shim.before("fstat", 2, Exchange(file, other))
        shim.before("fstat", 3, lambda: seen.append(other.read_bytes() == b"content"))
        shim.after("fstat", 3, Unlink(link))
        shim.after("fstat", 3, Rename(other, link))
        first = os.fstat(descriptor)
        linked = os.path.islink(link)
        for _ in range(2):
            os.fstat(descriptor)
    os.close(descriptor)
    assert first.st_mtime == 1_000_000_000
    assert linked
    assert seen == [True]
    assert (file.read_bytes(), link.read_bytes()) == (b"the other content", b"content")
    assert not other.exists()


def test_a_rule_that_meets_no_call_fails_the_test(directory: Path) -> None:
    with pytest.raises(AssertionError, match="never made: .'call 1 of fsync'"), armed() as shim:
        shim.fail("fsync", 1, errno.EIO)


def test_a_change_that_does_not_work_fails_the_test(directory: Path) -> None:
    with pytest.raises(AssertionError, match="did not work"), armed() as shim:
        shim.before("open", 1, Unlink(directory / "absent"))
        os.close(os.open(directory, DIRECTORY_FLAGS))


def test_other_threads_pass_untouched(directory: Path) -> None:
    seen: list[bytes] = []

    def read_elsewhere() -> None:
        file = os.open(directory / "file", os.O_RDONLY)
        seen.append(os.read(file, 100))
        os.close(file)

    thread = threading.Thread(target=read_elsewhere)
    with armed() as shim:
        thread.start()
        thread.join()
    assert seen == [b"content"]
    assert shim.calls == []


def test_without_the_shim_the_tests_fail_and_tell_how_to_run() -> None:
    environment = {name: value for name, value in os.environ.items() if name != "LD_PRELOAD"}
    program = "from faults.injection import armed\nwith armed(): pass"
    done = subprocess.run(
        [sys.executable, "-c", program],
        cwd=Path(__file__).parents[1],
        env=environment,
        capture_output=True,
        text=True,
        check=False,
    )
    assert done.returncode == 1
    assert "AssertionError: the fault shim is not preloaded" in done.stderr
    assert "LD_PRELOAD=" in done.stderr
