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

# Taken before any test puts a name out of its place.
BOUND = tuple(name for name in vars(client_manifest) if not name.startswith("__"))
CLASSES = tuple(name for name in DEFINITIONS if isinstance(getattr(client_manifest, name), type))


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


@pytest.mark.parametrize("name", METHODS)
def test_a_method_has_the_promised_parameters(name: str) -> None:
    unpinned = client_manifest.PinnedRoot.__new__(client_manifest.PinnedRoot)
    assert shape(getattr(unpinned, name)) == METHODS[name]


def test_the_pinned_root_is_made_from_the_parameters_of_its_initialiser() -> None:
    assert shape(client_manifest.PinnedRoot) == METHODS["__init__"]


@pytest.mark.parametrize("name", [*FUNCTIONS, *CLASSES])
def test_a_definition_has_exactly_its_documentation_text(name: str) -> None:
    defined = getattr(client_manifest, name)
    assert defined.__doc__ == TEXTS.get(defined.__name__)


@pytest.mark.parametrize("name", METHODS)
def test_a_method_has_exactly_its_documentation_text(name: str) -> None:
    assert getattr(client_manifest.PinnedRoot, name).__doc__ == METHOD_TEXTS.get(name)


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


@pytest.mark.parametrize("name", METHODS)
def test_a_method_knows_its_name_and_class(name: str) -> None:
    method = getattr(client_manifest.PinnedRoot, name)
    assert method.__name__ == name
    assert method.__qualname__ == f"PinnedRoot.{name}"


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
