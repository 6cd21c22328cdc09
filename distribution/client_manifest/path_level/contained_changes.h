// One-shot functions that write and remove files beneath a root, and make and remove directories.
#pragma once

#include "client_manifest.h"

namespace client_manifest::path_level {

extern const host::Operation kWriteContainedRegularFile;
extern const host::Operation kRemoveContainedRegularFile;
extern const host::Operation kCleanupContainedRegularFiles;
extern const host::Operation kCleanupContainedRegularFilesInPrefixes;
extern const host::Operation kEnsureContainedDirectory;
extern const host::Operation kRemoveContainedDirectoryTree;

}  // namespace client_manifest::path_level
