// Removes a contained directory with all that it holds.
#pragma once

#include "client_manifest.h"

namespace client_manifest::pinned_root {

extern const host::Operation kRemoveDirectoryTree;

}  // namespace client_manifest::pinned_root
