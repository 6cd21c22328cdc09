// Proves a leaf: that a path still names the file that is open, or that it may be replaced.
#pragma once

#include "client_manifest.h"

namespace client_manifest::pinned_root {

extern const host::Operation kAssertReplaceableLeaf;
extern const host::Operation kAssertPathMatchesRegularFile;

}  // namespace client_manifest::pinned_root
