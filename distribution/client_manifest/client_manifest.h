// The chief header: every name by which the module reaches host objects and its own bindings, and
// the module dictionary in which operations look one another up.
//
// An operation that the text of another one names is reached through what the module's name is
// bound to when it runs, so that a replaced binding is honoured.
#pragma once

#include "host/call.h"
#include "host/operation.h"

namespace client_manifest {

inline constexpr const char* kModuleName = "brindlefen.distribution.client_manifest";

// Interned names, each field named as the text it holds, but for those that C++ reserves and those
// that a system header turns into something else.
#define CLIENT_MANIFEST_NAMES(NAME)                 \
  NAME(Mapping)                                     \
  NAME(Path)                                        \
  NAME(os)                                          \
  NAME(json)                                        \
  NAME(hashlib)                                     \
  NAME(loads)                                       \
  NAME(dumps)                                       \
  NAME(sha256)                                      \
  NAME(update)                                      \
  NAME(hexdigest)                                   \
  NAME(fullmatch)                                   \
  NAME(group)                                       \
  NAME(name)                                        \
  NAME(path)                                        \
  NAME(parts)                                       \
  NAME(abspath)                                     \
  NAME(fspath)                                      \
  NAME(joinpath)                                    \
  NAME(parent)                                      \
  NAME(split)                                       \
  NAME(join)                                        \
  NAME(truncate)                                    \
  NAME(write)                                       \
  NAME(flush)                                       \
  NAME(glob)                                        \
  NAME(version)                                     \
  NAME(client_manifest_version)                     \
  NAME(client_manifest_market_id)                   \
  NAME(client_manifest_era_number)                  \
  NAME(rstrip)                                      \
  NAME(secrets)                                     \
  NAME(token_hex)                                   \
  NAME(threading)                                   \
  NAME(get_ident)                                   \
  NAME(value)                                       \
  NAME(fileno)                                      \
  NAME(read)                                        \
  NAME(seek)                                        \
  NAME(close)                                       \
  NAME(files)                                       \
  NAME(items)                                       \
  NAME(kind)                                        \
  NAME(size_bytes)                                  \
  NAME(relative_path)                               \
  NAME(market_id)                                   \
  NAME(era_number)                                  \
  NAME(signals_index)                               \
  NAME(found_signal_is_pnl)                         \
  NAME(found_strategy_is_epoch_pnl)                 \
  NAME(found_signals)                               \
  NAME(found_strategies)                            \
  NAME(useful_signals)                              \
  NAME(stat_key)                                    \
  NAME(mtime_ns)                                    \
  NAME(ctime_ns)                                    \
  NAME(device)                                      \
  NAME(inode)                                       \
  NAME(st_size)                                     \
  NAME(st_dev)                                      \
  NAME(st_ino)                                      \
  NAME(accepted)                                    \
  NAME(signals_index_path)                          \
  NAME(signals_index_document)                      \
  NAME(membership_paths)                            \
  NAME(StrictJsonError)                             \
  NAME(ManifestJsonError)                           \
  NAME(JSONDecodeError)                             \
  NAME(AcceptedDistributionSet)                     \
  NAME(LoadedAcceptedDistributionSet)               \
  NAME(ContainedFileIdentity)                       \
  NAME(PinnedRoot)                                  \
  NAME(parse_strict_json_object_bytes)              \
  NAME(parse_distribution_manifest_bytes)           \
  NAME(parse_canonical_signals_index_bytes)         \
  NAME(validate_manifest_relative_path)             \
  NAME(validate_signals_index_manifest_declaration) \
  NAME(validate_accepted_distribution_set)          \
  NAME(identify_contained_regular_file)             \
  NAME(read_contained_regular_file)                 \
  NAME(write_contained_regular_file)                \
  NAME(copy_contained_regular_file)                 \
  NAME(read_regular_file_path)                      \
  NAME(positive_manifest_int)                       \
  NAME(manifest_metadata_from_path)                 \
  NAME(assert_root_unchanged)                       \
  NAME(open_regular_file_for_read)                  \
  NAME(read_regular_file)                           \
  NAME(read_regular_file_with_stat)                 \
  NAME(read_regular_file_if_present)                \
  NAME(hash_regular_file)                           \
  NAME(hash_open_regular_file)                      \
  NAME(assert_open_regular_file_identity)           \
  NAME(stat_regular_file)                           \
  NAME(write_atomic)                                \
  NAME(open_regular_file_for_update)                \
  NAME(remove_regular_file)                         \
  NAME(replace_regular_file)                        \
  NAME(move_regular_file_to)                        \
  NAME(remove_regular_files_with_suffix)            \
  NAME(remove_regular_files_in_prefixes)            \
  NAME(ensure_directory)                            \
  NAME(remove_directory_tree)                       \
  NAME(_descriptor)                                 \
  NAME(_anchor_descriptor)                          \
  NAME(_anchor_handle)                              \
  NAME(_boundary)                                   \
  NAME(_volume_path)                                \
  NAME(_root_components)                            \
  NAME(_root_identity)                              \
  NAME(_pending_update_identities)                  \
  NAME(_anchor_components)                          \
  NAME(_contained_root_label)                       \
  NAME(_require_descriptor)                         \
  NAME(_open_parent)                                \
  NAME(_open_absolute_directory)                    \
  NAME(_open_directory_components)                  \
  NAME(_assert_replaceable_leaf)                    \
  NAME(_assert_path_matches_regular_file)           \
  NAME(_read_open_regular_file_with_stat)           \
  NAME(_object_without_duplicate_keys)              \
  NAME(_reject_nonfinite_json_constant)             \
  NAME(_stat_nanoseconds)                           \
  NAME(_regular_file_stat_key)                      \
  NAME(_require_positive_identity)                  \
  NAME(_require_nonnegative_size)                   \
  NAME(_require_sha256)                             \
  NAME(_validate_entry_bytes)                       \
  NAME(_validate_entry_digest)                      \
  NAME(_found_pnl_path_section)                     \
  NAME(_membership_references)

struct Names {
#define CLIENT_MANIFEST_FIELD(name) PyObject* name;
  CLIENT_MANIFEST_NAMES(CLIENT_MANIFEST_FIELD)
#undef CLIENT_MANIFEST_FIELD

  PyObject* new_;                        // __new__
  PyObject* modification_time;           // st_mtime
  PyObject* change_time;                 // st_ctime
  PyObject* duplicate_json_key_error;    // _DuplicateJsonObjectKeyError
  PyObject* windows_pinned_root;         // _WindowsPinnedRoot
  PyObject* posix_pinned_root;           // _PosixPinnedRoot
  PyObject* windows_handle_file_system;  // _WindowsHandleFileSystem
  PyObject* rename_layout_class;         // _WindowsFileRenameInformationLayout
  PyObject* rename_layout_function;      // _windows_file_rename_information_layout
  PyObject* rename_bytes_function;       // _windows_file_rename_information_bytes
  PyObject* signals_index_sections;      // _SIGNALS_INDEX_SECTIONS
  PyObject* legacy_signals_index_path;   // _LEGACY_SIGNALS_INDEX_PATH
  PyObject* signals_index_path_pattern;  // _SIGNALS_INDEX_PATH_RE
  PyObject* sha256_pattern;              // _SHA256_RE
  PyObject* no_follow;                   // O_NOFOLLOW
};

// Tuples of keyword names, for calls that pass their last arguments by keyword.
struct Keywords {
  PyObject* label;
  PyObject* label_create;
  PyObject* label_expected_stat;
  PyObject* label_chunk_bytes;
  PyObject* label_identity;
  PyObject* safe_path_allow_replace;
  PyObject* create;
  PyObject* allow_replace;
  PyObject* missing_ok;
  PyObject* replace_pointer_size;
  PyObject* preserve_relative_paths;
  PyObject* relative_path;
  PyObject* relative_path_payload_label;
  PyObject* relative_path_actual_size_actual_sha_label;
  PyObject* pairs_hook_and_constant_hook;  // object_pairs_hook, parse_constant
  PyObject* sort_keys_allow_nan;
  PyObject* accepted_set_fields;   // of AcceptedDistributionSet
  PyObject* loaded_set_fields;     // of LoadedAcceptedDistributionSet
  PyObject* file_identity_fields;  // of ContainedFileIdentity
};

[[nodiscard]] const Names& names() noexcept;
[[nodiscard]] const Keywords& keywords() noexcept;

// What the module's `name` is bound to now; the host's NameError if it is not bound.
[[nodiscard]] host::Reference global(PyObject* name);

// Calls what the module's `name` is bound to now, with the last arguments by keyword where
// `keywords` names them; straight to `native` while that is `own`, our operation of that name.
template <class Native, class... Arguments>
[[nodiscard]] host::Reference call_bound(PyObject* name, const host::Operation& own, Native native,
                                         PyObject* keywords, Arguments... arguments) {
  const host::Reference now = global(name);
  return own.is(now.get()) ? native(arguments...)
                           : host::call_with_keywords(now, keywords, arguments...);
}

// Whether `value` is what the load has bound to `name`: as long as it is, a direct route may stand
// in for what the host would do with it.
[[nodiscard]] bool is_as_loaded(PyObject* name, const host::Reference& value);
// Records what the load has bound; once, at its end.
void record_bindings();

// Records the module whose dictionary `global` reads, and makes the names; once, at load.
void record_module(PyObject* module);
// Forgets a module whose load failed.
void forget_module() noexcept;
// The module that has been loaded, or null.
[[nodiscard]] PyObject* recorded_module() noexcept;

}  // namespace client_manifest
