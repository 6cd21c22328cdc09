// Carries one file from beneath one root to beneath another: by rename, by copy, or by hard link
// with the copy as fallback. Both roots are proved after the work.
#pragma once

#include "client_manifest.h"

namespace client_manifest::path_level {

extern const host::Operation kMoveContainedRegularFile;
extern const host::Operation kCopyContainedRegularFile;
extern const host::Operation kLinkOrCopyContainedRegularFile;

}  // namespace client_manifest::path_level
