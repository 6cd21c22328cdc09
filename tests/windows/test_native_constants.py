"""Proves the numbers in which the native boundary speaks to the kernel, and their order."""

from __future__ import annotations

from typing import Any

import pytest
from brindlefen.distribution import client_manifest

CONSTANTS = {
    "_FILE_ATTRIBUTE_DIRECTORY": 16,
    "_FILE_ATTRIBUTE_REPARSE_POINT": 1024,
    "_FILE_ATTRIBUTE_NORMAL": 128,
    "_FILE_READ_DATA": 1,
    "_FILE_LIST_DIRECTORY": 1,
    "_FILE_TRAVERSE": 32,
    "_FILE_READ_ATTRIBUTES": 128,
    "_FILE_WRITE_DATA": 2,
    "_FILE_APPEND_DATA": 4,
    "_DELETE": 65536,
    "_SYNCHRONIZE": 1048576,
    "_FILE_SHARE_READ": 1,
    "_FILE_SHARE_WRITE": 2,
    "_FILE_SHARE_DELETE": 4,
    "_FILE_OPEN": 1,
    "_FILE_CREATE": 2,
    "_FILE_OPEN_IF": 3,
    "_FILE_DIRECTORY_FILE": 1,
    "_FILE_NON_DIRECTORY_FILE": 64,
    "_FILE_OPEN_REPARSE_POINT": 2097152,
    "_FILE_SYNCHRONOUS_IO_NONALERT": 32,
    "_OBJ_CASE_INSENSITIVE": 64,
    "_OPEN_EXISTING": 3,
    "_FILE_FLAG_BACKUP_SEMANTICS": 33554432,
    "_FILE_FLAG_OPEN_REPARSE_POINT": 2097152,
    "_FILE_ID_INFO_CLASS": 18,
    "_FILE_NAMES_INFORMATION_CLASS": 12,
    "_FILE_RENAME_INFORMATION_CLASS": 10,
    "_FILE_DISPOSITION_INFORMATION_CLASS": 13,
    "_STATUS_NO_MORE_FILES": 2147483654,
    "_STATUS_OBJECT_NAME_NOT_FOUND": 3221225524,
    "_STATUS_OBJECT_PATH_NOT_FOUND": 3221225530,
    "_STATUS_OBJECT_NAME_COLLISION": 3221225525,
    "_STATUS_DELETE_PENDING": 3221225558,
}

OPERATIONS = (
    "split_root_path",
    "open_volume",
    "duplicate",
    "close",
    "identity",
    "kind",
    "is_reparse",
    "_attributes",
    "open_directory",
    "open_regular",
    "open_entry",
    "_open_relative",
    "stat",
    "file_object",
    "list_names",
    "rename",
    "delete",
    "_raise_status",
    "_handle_value",
)

BOUNDARY: Any = client_manifest._WindowsHandleFileSystem


def test_the_class_holds_these_constants_in_this_order_and_no_other() -> None:
    integers = {name: value for name, value in vars(BOUNDARY).items() if isinstance(value, int)}
    assert list(integers.items()) == list(CONSTANTS.items())
    assert {type(value) for value in integers.values()} == {int}


def test_the_statuses_are_unsigned() -> None:
    for name, value in vars(BOUNDARY).items():
        if name.startswith("_STATUS_"):
            assert 0x80000000 <= value <= 0xFFFFFFFF


def test_the_class_is_plain_and_says_what_it_is() -> None:
    assert BOUNDARY.__bases__ == (object,)
    assert BOUNDARY.__name__ == BOUNDARY.__qualname__ == "_WindowsHandleFileSystem"
    assert BOUNDARY.__module__ == client_manifest.__name__
    assert BOUNDARY.__doc__ == (
        "Small ctypes boundary for Windows handle-relative filesystem calls."
    )


@pytest.mark.parametrize("name", OPERATIONS)
def test_each_operation_stands_on_the_class(name: str) -> None:
    assert callable(getattr(BOUNDARY, name))


def test_what_is_shared_is_a_value_and_not_a_call() -> None:
    assert not callable(vars(BOUNDARY)["_share_access"])
    bare = object.__new__(BOUNDARY)
    assert bare._share_access == 7
    with pytest.raises(AttributeError):
        bare._share_access = 0
