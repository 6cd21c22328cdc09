// The body of the module, read from top to bottom: host imports, constants, then classes and
// functions, each run of bindings where the room that owns it comes.
#include "frame/bindings.h"

#include <initializer_list>

#include "accepted/declaration.h"
#include "accepted/entry_checks.h"
#include "accepted/entry_requirements.h"
#include "accepted/load.h"
#include "accepted/membership.h"
#include "accepted/records.h"
#include "accepted/set_validation.h"
#include "accepted/stat_key.h"
#include "documents/relative_path.h"
#include "documents/signals_index.h"
#include "documents/strict_json.h"
#include "frame/class_choice.h"
#include "host/plain_class.h"
#include "path_level/contained_changes.h"
#include "path_level/contained_reads.h"
#include "path_level/local_metadata.h"
#include "path_level/transfers.h"
#include "path_level/whole_paths.h"
#include "pinned_root/class.h"
#include "windows/classes.h"
#include "windows/rename_buffer.h"

namespace client_manifest::frame {
namespace {

using host::Operation;
using host::Reference;
using host::take;

class Binder {
 public:
  explicit Binder(PyObject* module)
      : module_(module), module_name_(take(PyModule_GetNameObject(module))) {}

  void bind(const char* name, const Reference& value) const {
    host::check(PyModule_AddObjectRef(module_, name, value.get()));
  }

  void bind_functions(std::initializer_list<const Operation*> operations) const {
    for (const Operation* const operation : operations) {
      bind(operation->signature().name, operation->function(module_));
    }
  }

  void import(const char* name) const { bind(name, take(PyImport_ImportModule(name))); }

  void import_from(const char* source, const char* name) const {
    const Reference imported = take(PyImport_ImportModule(source));
    bind(name, take(PyObject_GetAttrString(imported.get(), name)));
  }

  [[nodiscard]] Reference bound(const char* name) const {
    return take(PyObject_GetAttrString(module_, name));
  }
  [[nodiscard]] PyObject* module_name() const noexcept { return module_name_.get(); }

 private:
  PyObject* module_;
  Reference module_name_;
};

void import_from_host(const Binder& binder) {
  for (const char* const name : {"json", "hashlib", "os", "re", "secrets", "stat", "threading"}) {
    binder.import(name);
  }
  binder.import_from("collections.abc", "Mapping");
  binder.import_from("dataclasses", "dataclass");
  binder.import_from("pathlib", "Path");
  binder.import_from("typing", "Any");
}

Reference compiled(const Binder& binder, const char* pattern) {
  const Reference re = binder.bound("re");
  return take(PyObject_CallMethod(re.get(), "compile", "s", pattern));
}

void bind_constants(const Binder& binder) {
  binder.bind("_SIGNALS_INDEX_SECTIONS",
              take(PyTuple_Pack(3, names().found_signals, names().found_strategies,
                                names().useful_signals)));
  binder.bind("_LEGACY_SIGNALS_INDEX_PATH", take(PyUnicode_FromString("signals_index.json")));
  binder.bind("_SIGNALS_INDEX_PATH_RE",
              compiled(binder, R"(^_control/signals_index\.([0-9a-f]{64})\.json$)"));
  binder.bind("_SHA256_RE", compiled(binder, "^[0-9a-f]{64}$"));
}

// `class name(base)` with nothing in it but its documentation.
void bind_error_class(const Binder& binder, const char* name, PyObject* base,
                      const char* documentation) {
  binder.bind(
      name, host::plain_class(
                {.name = name, .documentation = documentation, .module_name = binder.module_name()},
                base, {}));
}

void bind_error_classes(const Binder& binder) {
  bind_error_class(binder, "_DuplicateJsonObjectKeyError", PyExc_ValueError,
                   "Internal marker preserving duplicate-key context across ``json.loads``.");
  bind_error_class(binder, "StrictJsonError", PyExc_ValueError,
                   "Untrusted JSON bytes are ambiguous, malformed, or the wrong shape.");
  bind_error_class(binder, "ManifestJsonError", binder.bound("StrictJsonError").get(),
                   "The full distribution manifest bytes are ambiguous or malformed.");
}

void bind_records(const Binder& binder) {
  const Reference dataclass = binder.bound("dataclass");
  binder.bind("AcceptedDistributionSet", accepted::make_accepted_distribution_set_class(
                                             dataclass.get(), binder.module_name()));
  binder.bind(
      "LoadedAcceptedDistributionSet",
      accepted::make_loaded_accepted_distribution_set_class(dataclass.get(), binder.module_name()));
  binder.bind("ContainedFileIdentity",
              accepted::make_contained_file_identity_class(dataclass.get(), binder.module_name()));
}

// The class statement touches nothing of Windows: the classes stand on every platform.
void bind_windows(const Binder& binder, const Reference& pinned_root) {
  binder.bind(
      "_WindowsFileRenameInformationLayout",
      windows::make_rename_layout_class(binder.bound("dataclass").get(), binder.module_name()));
  binder.bind_functions({
      &windows::kWindowsFileRenameInformationLayout,
      &windows::kWindowsFileRenameInformationBytes,
  });
  binder.bind("_WindowsHandleFileSystem",
              windows::make_handle_file_system_class(binder.module_name()));
  binder.bind("_WindowsPinnedRoot",
              windows::make_windows_pinned_root_class(pinned_root.get(), binder.module_name()));
}

void bind_pinned_root(const Binder& binder) {
  const Reference pinned_root = pinned_root::make_pinned_root_class(binder.module_name());
  binder.bind("PinnedRoot", pinned_root);
  binder.bind("_PosixPinnedRoot", pinned_root);
  bind_windows(binder, pinned_root);
  binder.bind_functions({&kPinnedRootClass});
  binder.bind("PinnedRoot", host::call(binder.bound("_pinned_root_class")));
}

}  // namespace

void bind_all(PyObject* module) {
  const Binder binder(module);
  // As every module of the host has it; the records' generated code would put it in further down.
  binder.bind("__builtins__", take(PyImport_ImportModule("builtins")));
  import_from_host(binder);
  bind_constants(binder);
  bind_error_classes(binder);
  binder.bind_functions({
      &documents::kObjectWithoutDuplicateKeys,
      &documents::kRejectNonfiniteJsonConstant,
      &documents::kParseStrictJsonObjectBytes,
      &documents::kParseDistributionManifestBytes,
      &documents::kParseCanonicalSignalsIndexBytes,
      &documents::kValidateManifestRelativePath,
  });
  bind_records(binder);
  binder.bind_functions({
      &accepted::kStatNanoseconds,
      &accepted::kRegularFileStatKey,
      &accepted::kRequirePositiveIdentity,
      &accepted::kRequireNonnegativeSize,
      &accepted::kRequireSha256,
      &accepted::kValidateEntryBytes,
      &accepted::kValidateEntryDigest,
      &accepted::kValidateSignalsIndexManifestDeclaration,
      &accepted::kFoundPnlPathSection,
      &accepted::kMembershipReferences,
      &accepted::kValidateAcceptedDistributionSet,
  });
  bind_pinned_root(binder);
  binder.bind_functions({
      &accepted::kLoadAcceptedDistributionSet,
      &path_level::kReadContainedRegularFile,
      &path_level::kReadContainedRegularFileIfPresent,
      &path_level::kStatContainedRegularFile,
      &path_level::kHashRegularFilePath,
      &path_level::kIdentifyContainedRegularFile,
      &path_level::kHashContainedRegularFile,
      &path_level::kWriteContainedRegularFile,
      &path_level::kRemoveContainedRegularFile,
      &path_level::kCleanupContainedRegularFiles,
      &path_level::kCleanupContainedRegularFilesInPrefixes,
      &path_level::kEnsureContainedDirectory,
      &path_level::kRemoveContainedDirectoryTree,
      &path_level::kMoveContainedRegularFile,
      &path_level::kCopyContainedRegularFile,
      &path_level::kLinkOrCopyContainedRegularFile,
      &path_level::kReadRegularFilePath,
      &path_level::kWriteRegularFilePath,
      &path_level::kPositiveManifestInt,
      &path_level::kManifestMetadataFromPath,
      &path_level::kLocalClientManifestMetadata,
  });
}

}  // namespace client_manifest::frame
