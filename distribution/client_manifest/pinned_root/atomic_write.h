// Publishes a whole new file at a contained path: a reader sees the old leaf or all of the new one.
#pragma once

#include "client_manifest.h"

namespace client_manifest::pinned_root {

extern const host::Operation kWriteAtomic;

}  // namespace client_manifest::pinned_root
