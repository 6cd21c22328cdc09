// Walks a contained path to the directory that holds its leaf.
#pragma once

#include "client_manifest.h"

namespace client_manifest::pinned_root {

extern const host::Operation kOpenParent;

}  // namespace client_manifest::pinned_root
