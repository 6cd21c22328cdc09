// Pins a root: opens one real directory from "/" or from an anchor, segment by segment.
#pragma once

#include "client_manifest.h"

namespace client_manifest::pinned_root {

extern const host::Operation kInit;
extern const host::Operation kOpenAbsoluteDirectory;
extern const host::Operation kOpenDirectoryComponents;
extern const host::Operation kRequireDescriptor;

}  // namespace client_manifest::pinned_root
