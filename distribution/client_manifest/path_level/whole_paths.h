// Reads, writes and hashes a file by its whole path: the parent directory is pinned, and the leaf
// is a contained path of one segment beneath it.
#pragma once

#include "client_manifest.h"

namespace client_manifest::path_level {

extern const host::Operation kHashRegularFilePath;
extern const host::Operation kReadRegularFilePath;
extern const host::Operation kWriteRegularFilePath;

}  // namespace client_manifest::path_level
