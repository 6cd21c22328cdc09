// Moves one contained regular file onto another leaf, of the same pinned root or of another one.
#pragma once

#include "client_manifest.h"

namespace client_manifest::pinned_root {

extern const host::Operation kReplaceRegularFile;
extern const host::Operation kMoveRegularFileTo;

}  // namespace client_manifest::pinned_root
