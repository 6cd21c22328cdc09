// Puts the members of each class together, in the order of its body.
#include "windows/classes.h"

#include "host/plain_class.h"
#include "windows/handle_operations.h"
#include "windows/native_constants.h"
#include "windows/root_operations.h"

namespace client_manifest::windows {

using host::Reference;

Reference make_handle_file_system_class(PyObject* module_name) {
  return host::plain_class(
      {.name = "_WindowsHandleFileSystem",
       .documentation = "Small ctypes boundary for Windows handle-relative filesystem calls.",
       .module_name = module_name},
      /*base=*/nullptr,
      {
          &kNativeInit,    &kSplitRootPath, &kOpenVolume, &kShareAccess,  &kDuplicate,
          &kCloseHandle,   &kIdentity,      &kKind,       &kIsReparse,    &kAttributes,
          &kOpenDirectory, &kOpenRegular,   &kOpenEntry,  &kOpenRelative, &kStat,
          &kFileObject,    &kListNames,     &kRename,     &kDelete,       &kRaiseStatus,
          &kHandleValue,
      },
      {
#define CLIENT_MANIFEST_CLASS_CONSTANT(word, number) {.name = "_" #word, .value = (number)},
          CLIENT_MANIFEST_NATIVE_CONSTANTS(CLIENT_MANIFEST_CLASS_CONSTANT)
#undef CLIENT_MANIFEST_CLASS_CONSTANT
      });
}

Reference make_windows_pinned_root_class(PyObject* posix_pinned_root, PyObject* module_name) {
  return host::plain_class(
      {.name = "_WindowsPinnedRoot",
       .documentation = "Pinned-root implementation using only Windows kernel-relative children.",
       .module_name = module_name},
      posix_pinned_root,
      {
          &kWindowsInit,
          &kWindowsClose,
          &kWindowsAssertRootUnchanged,
          &kWindowsOpenContainedRoot,
          &kWindowsWriteAtomic,
          &kWindowsOpenRegularFileForUpdate,
          &kWindowsOpenRegularFileForRead,
          &kWindowsRemoveRegularFile,
          &kWindowsReplaceRegularFile,
          &kWindowsMoveRegularFileTo,
          &kWindowsRemoveRegularFilesWithSuffix,
          &kWindowsRemoveRegularFilesInPrefixes,
          &kWindowsListDirectoryNames,
          &kWindowsEnsureDirectory,
          &kWindowsRemoveDirectoryTree,
          &kWindowsAssertReplaceableLeaf,
          &kWindowsAssertPathMatchesRegularFile,
          &kWindowsOpenParent,
          &kWindowsOpenAbsoluteDirectory,
          &kWindowsOpenDirectoryComponents,
          &kWindowsRequireDescriptor,
          &kAssertParentPathMatches,
          &kAssertDirectoryPathMatches,
          &kAssertLeafMissing,
          &kRequireSafeDirectory,
          &kRequireSafeRegular,
      });
}

}  // namespace client_manifest::windows
