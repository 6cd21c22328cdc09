// Pins a second root beneath a first one; each lives on after the other is closed.
#pragma once

#include "client_manifest.h"

namespace client_manifest::pinned_root {

extern const host::Operation kOpenContainedRoot;

}  // namespace client_manifest::pinned_root
