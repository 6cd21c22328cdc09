// Removes one contained regular file, and nothing else that may stand at its name.
#pragma once

#include "client_manifest.h"

namespace client_manifest::pinned_root {

extern const host::Operation kRemoveRegularFile;

}  // namespace client_manifest::pinned_root
