// Opens contained files for streaming reads and for update in place.
#pragma once

#include "client_manifest.h"

namespace client_manifest::pinned_root {

extern const host::Operation kOpenRegularFileForRead;
extern const host::Operation kOpenRegularFileForUpdate;

}  // namespace client_manifest::pinned_root
