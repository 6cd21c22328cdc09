// Removes the regular files that a selector picks, by the end of their names or by where they are.
#pragma once

#include "client_manifest.h"

namespace client_manifest::pinned_root {

extern const host::Operation kRemoveRegularFilesWithSuffix;
extern const host::Operation kRemoveRegularFilesInPrefixes;

}  // namespace client_manifest::pinned_root
