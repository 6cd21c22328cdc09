"""Loads the module in a fresh process in the one way that the first argument names."""

from __future__ import annotations

import importlib
import importlib.util
import os
import sys
from functools import partial
from types import ModuleType
from typing import Any

MODULE = "brindlefen.distribution.client_manifest"
HOST_MODULES = (
    "json",
    "hashlib",
    "os",
    "re",
    "secrets",
    "stat",
    "threading",
    "collections.abc",
    "dataclasses",
    "pathlib",
    "typing",
)
LOADED_ALREADY = (
    "Module 'client_manifest' has already been imported. Re-initialisation is not supported."
)
OTHER_INTERPRETER = (
    "Interpreter change detected - this module can only be loaded into one interpreter per process."
)
OTHER_PLATFORM = "the native Windows pinned-root boundary is available only on Windows"


class Stop(Exception):
    """Raised by a host facility that this script has broken."""


def load() -> Any:
    return importlib.import_module(MODULE)


def load_as(platform_name: str) -> Any:
    """Loads under another platform's name; the host's own modules keep to the real one."""
    importlib.import_module("pathlib")
    name = os.name
    os.name = platform_name
    try:
        return load()
    finally:
        os.name = name


def works(module: Any) -> None:
    parsed = module.parse_strict_json_object_bytes(b'{"a": 1}', label="label")
    assert parsed == {"a": 1}, parsed
    assert module.PinnedRoot is module._PosixPinnedRoot
    assert issubclass(module._WindowsPinnedRoot, module.PinnedRoot)


def fresh() -> ModuleType:
    """A new module object whose body has not run."""
    found = importlib.util.find_spec(MODULE)
    assert found is not None
    return importlib.util.module_from_spec(found)


def run(module: ModuleType) -> None:
    assert module.__spec__ is not None
    assert module.__spec__.loader is not None
    module.__spec__.loader.exec_module(module)


def refuses(kind: type[BaseException], text: str, action: Any) -> None:
    try:
        action()
    except BaseException as error:
        assert type(error) is kind, repr(error)
        assert str(error) == text, repr(error)
        return
    raise AssertionError(f"not refused: {text}")


def import_again() -> None:
    first = load()
    before = dict(vars(first))
    assert load() is first
    assert dict(vars(first)) == before


def import_after_forgetting() -> None:
    first = load()
    del sys.modules[MODULE]
    for _ in range(3):
        refuses(RuntimeError, LOADED_ALREADY, load)
        assert MODULE not in sys.modules
    works(first)


def run_another_object() -> None:
    first = load()
    for _ in range(3):
        second = fresh()
        assert second is not first
        refuses(RuntimeError, LOADED_ALREADY, partial(run, second))
        assert not hasattr(second, "PinnedRoot")
        assert sys.modules[MODULE] is first
    works(first)


def body_runs_after_the_object_is_made() -> None:
    module = fresh()
    names = [name for name in vars(module) if not name.startswith("__")]
    assert names == [], names
    assert MODULE not in sys.modules
    run(module)
    works(module)


def registers_itself() -> None:
    module = fresh()
    run(module)
    assert sys.modules[MODULE] is module
    assert load() is module


def leaves_an_entry_that_stands() -> None:
    module = fresh()
    standing = ModuleType(MODULE)
    sys.modules[MODULE] = standing
    run(module)
    assert sys.modules[MODULE] is standing
    assert not hasattr(standing, "PinnedRoot")
    works(module)


def run_the_same_object_again() -> None:
    module = load()
    module._LEGACY_SIGNALS_INDEX_PATH = "changed"
    del module._SHA256_RE
    kept = dict(vars(module))
    run(module)
    assert dict(vars(module)) == kept


def reload() -> None:
    module = load()
    module._LEGACY_SIGNALS_INDEX_PATH = "changed"
    kept = {name: value for name, value in vars(module).items() if not name.startswith("__")}
    assert importlib.reload(module) is module
    after = {name: value for name, value in vars(module).items() if not name.startswith("__")}
    assert list(after) == list(kept)
    assert all(after[name] is kept[name] for name in kept)


def second_interpreter_is_refused() -> None:
    import _xxsubinterpreters as interpreters  # type: ignore[import-not-found]

    first = load()
    other = interpreters.create()
    program = "\n".join(
        [
            "import importlib, sys",
            "for _ in range(3):",
            "    try:",
            f"        importlib.import_module({MODULE!r})",
            "    except ImportError as error:",
            "        assert type(error) is ImportError, repr(error)",
            f"        assert str(error) == {OTHER_INTERPRETER!r}, repr(error)",
            "    else:",
            "        raise AssertionError('not refused')",
            f"    assert {MODULE!r} not in sys.modules",
        ]
    )
    interpreters.run_string(other, program)
    interpreters.destroy(other)
    works(first)


def first_interpreter_is_refused_after_another() -> None:
    import _xxsubinterpreters as interpreters

    other = interpreters.create()
    interpreters.run_string(other, f"import importlib; importlib.import_module({MODULE!r})")
    refuses(ImportError, OTHER_INTERPRETER, load)
    assert MODULE not in sys.modules
    interpreters.destroy(other)


def lacks(*names: str) -> None:
    """Hides host modules during the first load: the first of `names` ends it."""
    held = {name: importlib.import_module(name) for name in HOST_MODULES}
    for name in names:
        sys.modules[name] = None  # type: ignore[assignment]
    try:
        load()
    except ModuleNotFoundError as error:
        met = error.name
    else:
        raise AssertionError("the load went on without a host module")
    finally:
        sys.modules.update(held)
    assert met == names[0], met
    assert MODULE not in sys.modules
    works(load())


def broken_midway(stops_at: str) -> None:
    """Breaks the maker of the frozen records during the first load, at the n-th record."""
    import dataclasses

    made = 0
    maker = dataclasses.dataclass

    def breaking(*args: Any, **kwargs: Any) -> Any:
        nonlocal made
        made += 1
        if made == int(stops_at):
            raise Stop("broken")
        return maker(*args, **kwargs)

    dataclasses.dataclass = breaking
    refuses(Stop, "broken", load)
    assert MODULE not in sys.modules
    dataclasses.dataclass = maker
    module = load()
    assert module.dataclass is maker
    works(module)


def follows_the_host_name() -> None:
    """With the other platform's name at load, its class is chosen, once and for all."""
    module = load_as("nt")
    assert module.PinnedRoot is module._WindowsPinnedRoot
    assert module._PosixPinnedRoot.__name__ == "PinnedRoot"
    assert module._PosixPinnedRoot is not module.PinnedRoot
    assert module._pinned_root_class() is module._PosixPinnedRoot
    assert load().PinnedRoot is module._WindowsPinnedRoot


def functions_use_the_class_that_was_chosen() -> None:
    """What makes a root for itself makes one of the other platform, which has no boundary here."""
    module = load_as("nt")
    for make in (
        partial(module.load_accepted_distribution_set, "C:\\data"),
        partial(module.read_contained_regular_file, "C:\\data", "leaf", label="label"),
        partial(module.read_regular_file_path, "/data/leaf", label="label"),
    ):
        refuses(NotImplementedError, OTHER_PLATFORM, make)


def imports_no_foreign_calls() -> None:
    """Neither the load needs them, nor what works on every platform, nor a refusal."""
    assert "ctypes" not in sys.modules
    module = load()
    module._WindowsHandleFileSystem.split_root_path("C:\\data")
    module._windows_file_rename_information_bytes(1, b"a\0", replace=True, pointer_size=8)
    refuses(NotImplementedError, OTHER_PLATFORM, module._WindowsHandleFileSystem)
    assert "ctypes" not in sys.modules
    assert "_ctypes" not in sys.modules


def ends_with_the_module_in_use() -> None:
    """Leaves with records, functions and a pinned root alive, in a cycle with the module."""
    module = load()
    module.itself = module
    module.root = module.PinnedRoot("/")
    module.root.module = module
    module.record = module.ContainedFileIdentity(1, "a", 2, 3, 4, 5)


if __name__ == "__main__":
    # This directory stands first on the path of a script; the suites' own files are no modules
    # for the process under test.
    del sys.path[0]
    globals()[sys.argv[1]](*sys.argv[2:])
