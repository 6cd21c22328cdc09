"""Proves how the module is loaded: one symbol, one process, one interpreter, all or nothing."""

from __future__ import annotations

import os
import subprocess
import sys
from itertools import pairwise
from pathlib import Path

import pytest
from brindlefen.distribution import client_manifest

from frame.loads import HOST_MODULES

SCRIPT = Path(__file__).with_name("loads.py")

# What a linker or an instrumenting compiler exports on its own account.
TOOLCHAIN_NAMES = {"_init", "_fini", "_edata", "_end", "__bss_start"}
TOOLCHAIN_PREFIXES = ("__asan_", "__odr_asan", "__ubsan_", "__sanitizer_", "__gcov_", "__llvm_")


def load_by(*arguments: str) -> None:
    """Runs one function of the script in a fresh process, which must end in good order."""
    ended = subprocess.run(
        [sys.executable, "-X", "faulthandler", str(SCRIPT), *arguments],
        capture_output=True,
        text=True,
        check=False,
    )
    assert ended.returncode == 0, ended.stderr
    assert ended.stdout == ""


def exported_symbols(library: str) -> set[str]:
    """The names of the strong symbols that a shared library defines for others."""
    plain = {name: value for name, value in os.environ.items() if name != "LD_PRELOAD"}
    listed = subprocess.run(
        ["nm", "--dynamic", "--defined-only", "--format=posix", library],
        capture_output=True,
        text=True,
        check=True,
        env=plain,
    )
    rows = [line.split() for line in listed.stdout.splitlines()]
    return {row[0] for row in rows if row[1] not in "VWuvw"}


def test_the_entry_point_is_the_one_exported_symbol() -> None:
    assert client_manifest.__file__ is not None
    own = {
        name
        for name in exported_symbols(client_manifest.__file__)
        if name not in TOOLCHAIN_NAMES and not name.startswith(TOOLCHAIN_PREFIXES)
    }
    assert own == {"PyInit_client_manifest"}


def test_a_second_import_gives_the_same_module() -> None:
    load_by("import_again")


def test_an_import_after_forgetting_the_module_is_refused() -> None:
    load_by("import_after_forgetting")


def test_the_body_is_refused_for_another_module_object() -> None:
    load_by("run_another_object")


def test_the_body_runs_apart_from_the_making_of_the_object() -> None:
    load_by("body_runs_after_the_object_is_made")


def test_the_body_registers_the_module() -> None:
    load_by("registers_itself")


def test_the_body_leaves_an_entry_that_stands() -> None:
    load_by("leaves_an_entry_that_stands")


def test_the_body_does_nothing_for_the_same_object_again() -> None:
    load_by("run_the_same_object_again")


def test_a_reload_does_nothing() -> None:
    load_by("reload")


def test_a_second_interpreter_is_refused() -> None:
    load_by("second_interpreter_is_refused")


def test_the_first_interpreter_is_refused_once_another_has_loaded() -> None:
    load_by("first_interpreter_is_refused_after_another")


@pytest.mark.parametrize("name", HOST_MODULES)
def test_a_missing_host_module_aborts_the_import_and_a_later_one_works(name: str) -> None:
    load_by("lacks", name)


@pytest.mark.parametrize(("earlier", "later"), pairwise(HOST_MODULES))
def test_the_host_modules_are_imported_in_their_order(earlier: str, later: str) -> None:
    load_by("lacks", earlier, later)


@pytest.mark.parametrize("record", ["1", "2", "3", "4"])
def test_a_failure_in_the_body_aborts_the_import_and_a_later_one_works(record: str) -> None:
    load_by("broken_midway", record)


def test_the_class_is_chosen_at_load_from_the_hosts_name() -> None:
    load_by("follows_the_host_name")


def test_functions_make_roots_of_the_class_that_was_chosen_at_load() -> None:
    load_by("functions_use_the_class_that_was_chosen")


def test_ctypes_is_not_imported_before_a_boundary_of_windows_is_built() -> None:
    load_by("imports_no_foreign_calls")


def test_a_process_ends_in_good_order_with_the_module_in_use() -> None:
    load_by("ends_with_the_module_in_use")
