// One-shot functions that take bytes, stat results and digests out of a file beneath a root.
#pragma once

#include "client_manifest.h"

namespace client_manifest::path_level {

extern const host::Operation kReadContainedRegularFile;
extern const host::Operation kReadContainedRegularFileIfPresent;
extern const host::Operation kStatContainedRegularFile;
extern const host::Operation kIdentifyContainedRegularFile;
extern const host::Operation kHashContainedRegularFile;

}  // namespace client_manifest::path_level
