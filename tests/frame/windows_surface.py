"""States what the classes for Windows promise: constants, operations, and who overrides what."""

from __future__ import annotations

# The class constants of the native boundary, in their order.
BOUNDARY_CONSTANTS = {
    "_FILE_ATTRIBUTE_DIRECTORY": 0x10,
    "_FILE_ATTRIBUTE_REPARSE_POINT": 0x400,
    "_FILE_ATTRIBUTE_NORMAL": 0x80,
    "_FILE_READ_DATA": 0x1,
    "_FILE_LIST_DIRECTORY": 0x1,
    "_FILE_TRAVERSE": 0x20,
    "_FILE_READ_ATTRIBUTES": 0x80,
    "_FILE_WRITE_DATA": 0x2,
    "_FILE_APPEND_DATA": 0x4,
    "_DELETE": 0x10000,
    "_SYNCHRONIZE": 0x100000,
    "_FILE_SHARE_READ": 0x1,
    "_FILE_SHARE_WRITE": 0x2,
    "_FILE_SHARE_DELETE": 0x4,
    "_FILE_OPEN": 0x1,
    "_FILE_CREATE": 0x2,
    "_FILE_OPEN_IF": 0x3,
    "_FILE_DIRECTORY_FILE": 0x1,
    "_FILE_NON_DIRECTORY_FILE": 0x40,
    "_FILE_OPEN_REPARSE_POINT": 0x200000,
    "_FILE_SYNCHRONOUS_IO_NONALERT": 0x20,
    "_OBJ_CASE_INSENSITIVE": 0x40,
    "_OPEN_EXISTING": 0x3,
    "_FILE_FLAG_BACKUP_SEMANTICS": 0x2000000,
    "_FILE_FLAG_OPEN_REPARSE_POINT": 0x200000,
    "_FILE_ID_INFO_CLASS": 0x12,
    "_FILE_NAMES_INFORMATION_CLASS": 0xC,
    "_FILE_RENAME_INFORMATION_CLASS": 0xA,
    "_FILE_DISPOSITION_INFORMATION_CLASS": 0xD,
    "_STATUS_NO_MORE_FILES": 0x80000006,
    "_STATUS_OBJECT_NAME_NOT_FOUND": 0xC0000034,
    "_STATUS_OBJECT_PATH_NOT_FOUND": 0xC000003A,
    "_STATUS_OBJECT_NAME_COLLISION": 0xC0000035,
    "_STATUS_DELETE_PENDING": 0xC0000056,
}

# The operations of the native boundary, as an instance shows them.
BOUNDARY_METHODS = {
    "__init__": "()",
    "split_root_path": "(path)",
    "open_volume": "(volume_path)",
    "duplicate": "(handle)",
    "close": "(handle)",
    "identity": "(handle)",
    "kind": "(handle)",
    "is_reparse": "(handle)",
    "_attributes": "(handle)",
    "open_directory": "(parent, name, *, create, delete=False)",
    "open_regular": "(parent, name, *, writable, create, exclusive=False, delete=False)",
    "open_entry": "(parent, name, *, delete)",
    "_open_relative": "(parent, name, *, desired_access, disposition, options)",
    "stat": "(handle)",
    "file_object": "(handle, mode)",
    "list_names": "(handle)",
    "rename": "(source, destination_parent, destination_name, *, replace)",
    "delete": "(handle)",
    "_raise_status": "(status, label)",
    "_handle_value": "(handle)",
}
# Those that need no instance, and the value that is no call.
BOUNDARY_WITHOUT_INSTANCE = frozenset({"split_root_path", "_handle_value"})
BOUNDARY_PROPERTY = "_share_access"

# What the root for Windows puts in the place of the other's operations, as an instance shows it.
WINDOWS_OVERRIDES = {
    "__init__": "(root, *, create=False, _boundary=None)",
    "close": "()",
    "assert_root_unchanged": "()",
    "open_contained_root": "(relative_path, *, label)",
    "write_atomic": "(relative_path, payload, *, allow_replace)",
    "open_regular_file_for_update": "(relative_path, *, create)",
    "open_regular_file_for_read": "(relative_path, *, label)",
    "remove_regular_file": "(relative_path, *, missing_ok)",
    "replace_regular_file": "(source_relative_path, destination_relative_path)",
    "move_regular_file_to": "(source_relative_path, destination_root, destination_relative_path)",
    "remove_regular_files_with_suffix": "(suffix, *, preserve_relative_paths)",
    "remove_regular_files_in_prefixes": "(prefixes, *, preserve_relative_paths)",
    "list_directory_names": "()",
    "ensure_directory": "(relative_path)",
    "remove_directory_tree": "(relative_path, *, missing_ok)",
    "_assert_replaceable_leaf": "(parent_descriptor, name, *, safe_path, allow_replace)",
    "_assert_path_matches_regular_file": "(relative_path, *, label, expected_stat)",
    "_open_parent": "(relative_path, *, label, create)",
    "_open_absolute_directory": "(_path, *, create)",
    "_open_directory_components": "(anchor_handle, components, *, label)",
    "_require_descriptor": "()",
}
WINDOWS_ADDITIONS = {
    "_assert_parent_path_matches": "(relative_path, *, expected_parent, label)",
    "_assert_directory_path_matches": "(relative_path, *, expected_directory, label)",
    "_assert_leaf_missing": "(relative_path, *, label)",
    "_require_safe_directory": "(handle, path)",
    "_require_safe_regular": "(handle, path, label)",
}
WINDOWS_METHODS = {**WINDOWS_OVERRIDES, **WINDOWS_ADDITIONS}
