// Interns the module's names once, and looks its bindings up when they are needed.
#include "client_manifest.h"

#include <initializer_list>

#include "host/message.h"

namespace client_manifest {
namespace {

// These live as long as the process: an instance that outlives the interpreter's shutdown of the
// module must still find them.
Names interned{};
Keywords keyword_names{};
PyObject* module_object = nullptr;
PyObject* module_dictionary = nullptr;
PyObject* loaded_bindings = nullptr;

PyObject* intern(const char* text) {
  return host::take(PyUnicode_InternFromString(text)).release();
}

PyObject* name_tuple(std::initializer_list<const char*> texts) {
  host::Reference tuple = host::take(PyTuple_New(static_cast<Py_ssize_t>(texts.size())));
  Py_ssize_t place = 0;
  for (const char* const text : texts) PyTuple_SET_ITEM(tuple.get(), place++, intern(text));
  return tuple.release();
}

void make_names() {
#define CLIENT_MANIFEST_INTERN(name) interned.name = intern(#name);
  CLIENT_MANIFEST_NAMES(CLIENT_MANIFEST_INTERN)
#undef CLIENT_MANIFEST_INTERN
  interned.new_ = intern("__new__");
  interned.modification_time = intern("st_mtime");
  interned.change_time = intern("st_ctime");
  interned.duplicate_json_key_error = intern("_DuplicateJsonObjectKeyError");
  interned.windows_pinned_root = intern("_WindowsPinnedRoot");
  interned.posix_pinned_root = intern("_PosixPinnedRoot");
  interned.windows_handle_file_system = intern("_WindowsHandleFileSystem");
  interned.rename_layout_class = intern("_WindowsFileRenameInformationLayout");
  interned.rename_layout_function = intern("_windows_file_rename_information_layout");
  interned.rename_bytes_function = intern("_windows_file_rename_information_bytes");
  interned.signals_index_sections = intern("_SIGNALS_INDEX_SECTIONS");
  interned.legacy_signals_index_path = intern("_LEGACY_SIGNALS_INDEX_PATH");
  interned.signals_index_path_pattern = intern("_SIGNALS_INDEX_PATH_RE");
  interned.sha256_pattern = intern("_SHA256_RE");
  interned.no_follow = intern("O_NOFOLLOW");
}

void make_keywords() {
  keyword_names = Keywords{
      .label = name_tuple({"label"}),
      .label_create = name_tuple({"label", "create"}),
      .label_expected_stat = name_tuple({"label", "expected_stat"}),
      .label_chunk_bytes = name_tuple({"label", "chunk_bytes"}),
      .label_identity = name_tuple({"label", "identity"}),
      .safe_path_allow_replace = name_tuple({"safe_path", "allow_replace"}),
      .create = name_tuple({"create"}),
      .allow_replace = name_tuple({"allow_replace"}),
      .missing_ok = name_tuple({"missing_ok"}),
      .replace_pointer_size = name_tuple({"replace", "pointer_size"}),
      .preserve_relative_paths = name_tuple({"preserve_relative_paths"}),
      .relative_path = name_tuple({"relative_path"}),
      .relative_path_payload_label = name_tuple({"relative_path", "payload", "label"}),
      .relative_path_actual_size_actual_sha_label =
          name_tuple({"relative_path", "actual_size", "actual_sha", "label"}),
      .pairs_hook_and_constant_hook = name_tuple({"object_pairs_hook", "parse_constant"}),
      .sort_keys_allow_nan = name_tuple({"sort_keys", "allow_nan"}),
      .accepted_set_fields =
          name_tuple({"signals_index_path", "signals_index_document", "membership_paths"}),
      .loaded_set_fields =
          name_tuple({"manifest", "manifest_bytes", "signals_index_bytes", "accepted"}),
      .file_identity_fields =
          name_tuple({"size_bytes", "sha256", "device", "inode", "mtime_ns", "ctime_ns"}),
  };
}

}  // namespace

const Names& names() noexcept { return interned; }
const Keywords& keywords() noexcept { return keyword_names; }

host::Reference global(PyObject* name) {
  PyObject* const found = PyDict_GetItemWithError(module_dictionary, name);
  if (found != nullptr) return host::Reference::acquire(found);
  if (PyErr_Occurred() != nullptr) throw host::Error::fetch();
  host::raise(PyExc_NameError, "name '", name, "' is not defined");
}

bool is_as_loaded(PyObject* name, const host::Reference& value) {
  if (loaded_bindings == nullptr) return false;  // the load is under way
  PyObject* const loaded = PyDict_GetItemWithError(loaded_bindings, name);
  if (loaded == nullptr && PyErr_Occurred() != nullptr) throw host::Error::fetch();
  return loaded == value.get();
}

void record_bindings() { loaded_bindings = host::take(PyDict_Copy(module_dictionary)).release(); }

void record_module(PyObject* module) {
  static bool names_are_made = false;
  if (!names_are_made) {
    make_keywords();
    make_names();
    names_are_made = true;
  }
  // Held for good: what the load has made may be used for as long as the process lives. That goes
  // for the dictionary of a failed load too, until another one takes its place.
  module_object = Py_NewRef(module);
  const host::Reference replaced =
      host::Reference::steal(std::exchange(module_dictionary, Py_NewRef(PyModule_GetDict(module))));
}

void forget_module() noexcept {
  const host::Reference module = host::Reference::steal(std::exchange(module_object, nullptr));
}

PyObject* recorded_module() noexcept { return module_object; }

}  // namespace client_manifest
