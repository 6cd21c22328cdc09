// Puts the members together into one plain class without bases.
#include "pinned_root/class.h"

#include "host/plain_class.h"
#include "pinned_root/atomic_write.h"
#include "pinned_root/cleanup.h"
#include "pinned_root/contained_root.h"
#include "pinned_root/directories.h"
#include "pinned_root/hashing.h"
#include "pinned_root/leaf_proofs.h"
#include "pinned_root/lifecycle.h"
#include "pinned_root/opening.h"
#include "pinned_root/parent.h"
#include "pinned_root/pinning.h"
#include "pinned_root/reading.h"
#include "pinned_root/removal.h"
#include "pinned_root/replacement.h"
#include "pinned_root/root_proof.h"
#include "pinned_root/tree_removal.h"

namespace client_manifest::pinned_root {

host::Reference make_pinned_root_class(PyObject* module_name) {
  return host::plain_class(
      {.name = "PinnedRoot",
       .documentation = "Pin one real non-symlink directory for descriptor-relative local I/O.",
       .module_name = module_name},
      /*base=*/nullptr,
      {
          &kInit,
          &kEnter,
          &kExit,
          &kClose,
          &kAssertRootUnchanged,
          &kOpenContainedRoot,
          &kReadRegularFile,
          &kReadRegularFileWithStat,
          &kReadOpenRegularFileWithStat,
          &kReadRegularFileIfPresent,
          &kHashRegularFile,
          &kHashOpenRegularFile,
          &kAssertOpenRegularFileIdentity,
          &kStatRegularFile,
          &kWriteAtomic,
          &kOpenRegularFileForUpdate,
          &kOpenRegularFileForRead,
          &kRemoveRegularFile,
          &kReplaceRegularFile,
          &kMoveRegularFileTo,
          &kRemoveRegularFilesWithSuffix,
          &kRemoveRegularFilesInPrefixes,
          &kListDirectoryNames,
          &kEnsureDirectory,
          &kRemoveDirectoryTree,
          &kAssertReplaceableLeaf,
          &kAssertPathMatchesRegularFile,
          &kOpenParent,
          &kOpenAbsoluteDirectory,
          &kOpenDirectoryComponents,
          &kRequireDescriptor,
      });
}

}  // namespace client_manifest::pinned_root
