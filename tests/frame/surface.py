"""States the names, signatures and documentation texts that the module promises its callers."""

from __future__ import annotations

MODULE = "brindlefen.distribution.client_manifest"

HOST_IMPORTS = (
    "json",
    "hashlib",
    "os",
    "re",
    "secrets",
    "stat",
    "threading",
    "Mapping",
    "dataclass",
    "Path",
    "Any",
)

CONSTANTS = (
    "_SIGNALS_INDEX_SECTIONS",
    "_LEGACY_SIGNALS_INDEX_PATH",
    "_SIGNALS_INDEX_PATH_RE",
    "_SHA256_RE",
)

# Everything else that the load binds, in the order in which it binds it.
DEFINITIONS = (
    "_DuplicateJsonObjectKeyError",
    "StrictJsonError",
    "ManifestJsonError",
    "_object_without_duplicate_keys",
    "_reject_nonfinite_json_constant",
    "parse_strict_json_object_bytes",
    "parse_distribution_manifest_bytes",
    "parse_canonical_signals_index_bytes",
    "validate_manifest_relative_path",
    "AcceptedDistributionSet",
    "LoadedAcceptedDistributionSet",
    "ContainedFileIdentity",
    "_stat_nanoseconds",
    "_regular_file_stat_key",
    "_require_positive_identity",
    "_require_nonnegative_size",
    "_require_sha256",
    "_validate_entry_bytes",
    "_validate_entry_digest",
    "validate_signals_index_manifest_declaration",
    "_found_pnl_path_section",
    "_membership_references",
    "validate_accepted_distribution_set",
    "PinnedRoot",
    "_PosixPinnedRoot",
    "_WindowsFileRenameInformationLayout",
    "_windows_file_rename_information_layout",
    "_windows_file_rename_information_bytes",
    "_WindowsHandleFileSystem",
    "_WindowsPinnedRoot",
    "_pinned_root_class",
    "load_accepted_distribution_set",
    "read_contained_regular_file",
    "read_contained_regular_file_if_present",
    "stat_contained_regular_file",
    "hash_regular_file_path",
    "identify_contained_regular_file",
    "hash_contained_regular_file",
    "write_contained_regular_file",
    "remove_contained_regular_file",
    "cleanup_contained_regular_files",
    "cleanup_contained_regular_files_in_prefixes",
    "ensure_contained_directory",
    "remove_contained_directory_tree",
    "move_contained_regular_file",
    "copy_contained_regular_file",
    "link_or_copy_contained_regular_file",
    "read_regular_file_path",
    "write_regular_file_path",
    "positive_manifest_int",
    "manifest_metadata_from_path",
    "local_client_manifest_metadata",
)

_BETWEEN_ROOTS = (
    "(source_root, source_relative_path, destination_root, destination_relative_path)"
)

FUNCTIONS = {
    "_object_without_duplicate_keys": "(pairs)",
    "_reject_nonfinite_json_constant": "(value)",
    "parse_strict_json_object_bytes": "(payload, *, label)",
    "parse_distribution_manifest_bytes": "(manifest_bytes, *, label='manifest.json')",
    "parse_canonical_signals_index_bytes": "(payload, *, label='signals_index.json')",
    "validate_manifest_relative_path": "(relative_path)",
    "_stat_nanoseconds": "(file_stat, field)",
    "_regular_file_stat_key": "(file_stat)",
    "_require_positive_identity": "(value, *, label)",
    "_require_nonnegative_size": "(value, *, relative_path)",
    "_require_sha256": "(value, *, relative_path)",
    "_validate_entry_bytes": "(entry, *, relative_path, payload, label)",
    "_validate_entry_digest": "(entry, *, relative_path, actual_size, actual_sha, label)",
    "validate_signals_index_manifest_declaration": "(manifest)",
    "_found_pnl_path_section": "(relative_path)",
    "_membership_references": "(document)",
    "validate_accepted_distribution_set": (
        "(manifest, signals_index_bytes, *, membership_payloads=None)"
    ),
    "_windows_file_rename_information_layout": "(pointer_size, file_name_length)",
    "_windows_file_rename_information_bytes": (
        "(destination_parent, encoded_name, *, replace, pointer_size)"
    ),
    "_pinned_root_class": "(platform_name=None)",
    "load_accepted_distribution_set": "(root, *, manifest=None)",
    "read_contained_regular_file": "(root, relative_path, *, label)",
    "read_contained_regular_file_if_present": "(root, relative_path, *, label)",
    "stat_contained_regular_file": "(root, relative_path, *, label)",
    "hash_regular_file_path": "(path, *, label, chunk_bytes=1048576)",
    "identify_contained_regular_file": "(root, relative_path, *, label, chunk_bytes=1048576)",
    "hash_contained_regular_file": "(root, relative_path, *, label, chunk_bytes=1048576)",
    "write_contained_regular_file": "(root, relative_path, payload, *, allow_replace=True)",
    "remove_contained_regular_file": "(root, relative_path, *, missing_ok=True)",
    "cleanup_contained_regular_files": "(root, *, suffix, preserve_relative_paths)",
    "cleanup_contained_regular_files_in_prefixes": "(root, *, prefixes, preserve_relative_paths)",
    "ensure_contained_directory": "(root, relative_path)",
    "remove_contained_directory_tree": "(root, relative_path, *, missing_ok=True)",
    "move_contained_regular_file": _BETWEEN_ROOTS,
    "copy_contained_regular_file": _BETWEEN_ROOTS,
    "link_or_copy_contained_regular_file": _BETWEEN_ROOTS,
    "read_regular_file_path": "(path, *, label)",
    "write_regular_file_path": "(path, payload, *, allow_replace=True)",
    "positive_manifest_int": "(value)",
    "manifest_metadata_from_path": "(path)",
    "local_client_manifest_metadata": "(data_dir, *, market_id=None, era_number=None)",
}

# The members of the pinned root, in the order of the class body, as an instance shows them.
METHODS = {
    "__init__": "(root, *, create=False)",
    "__enter__": "()",
    "__exit__": "(_exc_type, _exc, _traceback)",
    "close": "()",
    "assert_root_unchanged": "()",
    "open_contained_root": "(relative_path, *, label)",
    "read_regular_file": "(relative_path, *, label)",
    "read_regular_file_with_stat": "(relative_path, *, label)",
    "_read_open_regular_file_with_stat": "(file, relative_path, *, label)",
    "read_regular_file_if_present": "(relative_path, *, label)",
    "hash_regular_file": "(relative_path, *, label, chunk_bytes=1048576)",
    "hash_open_regular_file": "(file, relative_path, *, label, chunk_bytes=1048576)",
    "assert_open_regular_file_identity": "(file, relative_path, *, label, identity)",
    "stat_regular_file": "(relative_path, *, label)",
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
    "_open_absolute_directory": "(path, *, create)",
    "_open_directory_components": "(anchor_descriptor, components, *, label)",
    "_require_descriptor": "()",
}

STATIC_METHODS = frozenset({"_assert_replaceable_leaf", "_open_directory_components"})
CLASS_METHODS = frozenset({"_open_absolute_directory"})

MODULE_TEXT = "Shared client-manifest validation and local metadata helpers."

# A function, class or method that is not named here has no documentation text of its own.
TEXTS = {
    "_DuplicateJsonObjectKeyError": (
        "Internal marker preserving duplicate-key context across ``json.loads``."
    ),
    "StrictJsonError": "Untrusted JSON bytes are ambiguous, malformed, or the wrong shape.",
    "ManifestJsonError": "The full distribution manifest bytes are ambiguous or malformed.",
    "AcceptedDistributionSet": "One manifest/sidecar membership set proven by exact metadata.",
    "LoadedAcceptedDistributionSet": (
        "Manifest closure authenticated in one pinned-root transaction."
    ),
    "ContainedFileIdentity": (
        "One stable descriptor-pinned regular-file identity and content hash."
    ),
    "PinnedRoot": "Pin one real non-symlink directory for descriptor-relative local I/O.",
    "_WindowsHandleFileSystem": (
        "Small ctypes boundary for Windows handle-relative filesystem calls."
    ),
    "_WindowsPinnedRoot": (
        "Pinned-root implementation using only Windows kernel-relative children."
    ),
    "parse_strict_json_object_bytes": (
        "Parse one untrusted UTF-8 JSON object without ambiguous JSON values."
    ),
    "parse_distribution_manifest_bytes": (
        "Parse exact full-distribution manifest bytes through the SDK authority."
    ),
    "parse_canonical_signals_index_bytes": (
        "Parse the producer's exact canonical five-field signals-index bytes."
    ),
    "validate_manifest_relative_path": (
        "Return an exact relative POSIX path without repairing aliases."
    ),
    "validate_signals_index_manifest_declaration": (
        "Return the sole canonical content-addressed sidecar declaration."
    ),
    "validate_accepted_distribution_set": (
        "Validate the one SDK accepted set without reading or repairing paths."
    ),
    "load_accepted_distribution_set": (
        "Authenticate manifest, sidecar, and membership streams under one root pin."
    ),
}

METHOD_TEXTS = {
    "assert_root_unchanged": (
        "Require the configured path to still name the pinned directory inode."
    ),
    "open_contained_root": "Pin an independently owned directory beneath this root.",
    "_read_open_regular_file_with_stat": (
        "Read all bytes and re-prove the consumed descriptor, path, and root."
    ),
    "hash_regular_file": "Hash one stable regular-file identity through a bounded stream.",
    "hash_open_regular_file": "Hash an already-open contained file without reopening its path.",
    "assert_open_regular_file_identity": (
        "Recheck one consumed descriptor against its contained path and root."
    ),
    "stat_regular_file": "Return one descriptor/path/root-stable regular-file stat result.",
    "open_regular_file_for_update": (
        "Open one contained regular file for descriptor-pinned binary update."
    ),
    "open_regular_file_for_read": (
        "Open one contained regular file for streaming descriptor-pinned reads."
    ),
    "_assert_path_matches_regular_file": (
        "Require the current contained path to retain the opened file identity."
    ),
}
