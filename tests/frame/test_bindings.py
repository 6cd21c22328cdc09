"""Proves that the module binds its names in the promised order, and says of each what it is."""

from __future__ import annotations

import collections.abc
import copy
import dataclasses
import hashlib
import inspect
import json
import os
import pathlib
import pickle
import re
import secrets
import stat
import sys
import threading
import typing
from collections.abc import Callable
from importlib.machinery import ExtensionFileLoader

import pytest
from brindlefen.distribution import client_manifest

from frame.surface import (
    CONSTANTS,
    DEFINITIONS,
    FUNCTIONS,
    HOST_IMPORTS,
    METHOD_TEXTS,
    METHODS,
    MODULE,
    MODULE_TEXT,
    TEXTS,
)
from frame.windows_surface import BOUNDARY_METHODS, WINDOWS_METHODS

# Taken before any test puts a name out of its place.
BOUND = tuple(name for name in vars(client_manifest) if not name.startswith("__"))
CLASSES = tuple(name for name in DEFINITIONS if isinstance(getattr(client_manifest, name), type))
METHODS_OF = {
    "PinnedRoot": METHODS,
    "_WindowsHandleFileSystem": BOUNDARY_METHODS,
    "_WindowsPinnedRoot": WINDOWS_METHODS,
}
every_method = pytest.mark.parametrize(
    ("kind", "name"), [(kind, name) for kind, methods in METHODS_OF.items() for name in methods]
)


def shape(operation: Callable[..., object]) -> str:
    """The parameters of an operation with their defaults, without the annotations."""
    signature = inspect.signature(operation)
    plain = [
        parameter.replace(annotation=inspect.Parameter.empty)
        for parameter in signature.parameters.values()
    ]
    return str(inspect.Signature(plain))


def test_the_names_are_bound_in_their_order_and_no_others_are() -> None:
    assert list(BOUND) == [*HOST_IMPORTS, *CONSTANTS, *DEFINITIONS]


def test_with_the_class_that_is_bound_twice_the_bindings_are_sixty_eight() -> None:
    assert len(BOUND) + 1 == 68


def test_the_module_declares_no_public_list() -> None:
    assert not hasattr(client_manifest, "__all__")


def test_the_module_says_where_it_comes_from() -> None:
    assert client_manifest.__name__ == MODULE
    assert client_manifest.__package__ == "brindlefen.distribution"
    assert client_manifest.__doc__ == MODULE_TEXT
    assert sys.modules[MODULE] is client_manifest


def test_the_module_was_loaded_as_an_extension() -> None:
    specification = client_manifest.__spec__
    assert specification is not None
    assert specification.name == MODULE
    assert isinstance(specification.loader, ExtensionFileLoader)
    assert client_manifest.__file__ == specification.origin


@pytest.mark.parametrize(
    ("name", "host"),
    [
        ("json", json),
        ("hashlib", hashlib),
        ("os", os),
        ("re", re),
        ("secrets", secrets),
        ("stat", stat),
        ("threading", threading),
        ("Mapping", collections.abc.Mapping),
        ("dataclass", dataclasses.dataclass),
        ("Path", pathlib.Path),
        ("Any", typing.Any),
    ],
)
def test_a_host_import_is_the_hosts_own_object(name: str, host: object) -> None:
    assert getattr(client_manifest, name) is host


def test_the_sections_stand_in_their_order() -> None:
    sections = client_manifest._SIGNALS_INDEX_SECTIONS
    assert type(sections) is tuple
    assert sections == ("found_signals", "found_strategies", "useful_signals")


def test_the_retired_sidecar_name_is_text() -> None:
    assert type(client_manifest._LEGACY_SIGNALS_INDEX_PATH) is str
    assert client_manifest._LEGACY_SIGNALS_INDEX_PATH == "signals_index.json"


@pytest.mark.parametrize(
    ("name", "pattern"),
    [
        ("_SIGNALS_INDEX_PATH_RE", r"^_control/signals_index\.([0-9a-f]{64})\.json$"),
        ("_SHA256_RE", r"^[0-9a-f]{64}$"),
    ],
)
def test_a_pattern_is_compiled_by_the_host_without_flags(name: str, pattern: str) -> None:
    compiled = getattr(client_manifest, name)
    assert type(compiled) is re.Pattern
    assert compiled == re.compile(pattern)


@pytest.mark.parametrize("name", FUNCTIONS)
def test_a_function_has_the_promised_parameters(name: str) -> None:
    assert shape(getattr(client_manifest, name)) == FUNCTIONS[name]


@every_method
def test_a_method_has_the_promised_parameters(kind: str, name: str) -> None:
    made_from = getattr(client_manifest, kind)
    assert shape(getattr(made_from.__new__(made_from), name)) == METHODS_OF[kind][name]


@pytest.mark.parametrize("kind", METHODS_OF)
def test_a_class_is_called_with_the_parameters_of_its_initialiser(kind: str) -> None:
    assert shape(getattr(client_manifest, kind)) == METHODS_OF[kind]["__init__"]


@pytest.mark.parametrize("name", [*FUNCTIONS, *CLASSES])
def test_a_definition_has_exactly_its_documentation_text(name: str) -> None:
    defined = getattr(client_manifest, name)
    expected = TEXTS.get(defined.__name__)
    if expected is None and dataclasses.is_dataclass(defined):
        # The host gives its signature to a record that has no text.
        fields = (f"{field.name}: {field.type!r}" for field in dataclasses.fields(defined))
        expected = f"{name}({', '.join(fields)})"
    assert defined.__doc__ == expected


@every_method
def test_a_method_has_exactly_its_documentation_text(kind: str, name: str) -> None:
    expected = METHOD_TEXTS.get(name) if kind == "PinnedRoot" else None
    assert getattr(getattr(client_manifest, kind), name).__doc__ == expected


@pytest.mark.parametrize("name", FUNCTIONS)
def test_a_function_knows_its_name_and_module(name: str) -> None:
    function = getattr(client_manifest, name)
    assert function.__name__ == name
    assert function.__qualname__ == name
    assert function.__module__ == MODULE


@pytest.mark.parametrize("name", CLASSES)
def test_a_class_knows_its_name_and_module(name: str) -> None:
    kept = "PinnedRoot" if name == "_PosixPinnedRoot" else name
    defined = getattr(client_manifest, name)
    assert defined.__name__ == kept
    assert defined.__qualname__ == kept
    assert defined.__module__ == MODULE


@every_method
def test_a_method_knows_its_name_and_class(kind: str, name: str) -> None:
    method = getattr(getattr(client_manifest, kind), name)
    assert method.__name__ == name
    assert method.__qualname__ == f"{kind}.{name}"


@pytest.mark.parametrize("name", [*FUNCTIONS, *CLASSES])
@pytest.mark.parametrize("protocol", range(pickle.HIGHEST_PROTOCOL + 1))
def test_a_definition_is_pickled_by_reference(name: str, protocol: int) -> None:
    defined = getattr(client_manifest, name)
    assert pickle.loads(pickle.dumps(defined, protocol)) is defined


@pytest.mark.parametrize("name", [*FUNCTIONS, *CLASSES])
def test_a_definition_is_copied_by_reference(name: str) -> None:
    defined = getattr(client_manifest, name)
    assert copy.copy(defined) is defined
    assert copy.deepcopy(defined) is defined
