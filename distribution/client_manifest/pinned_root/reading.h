// Reads contained files whole, under the three proofs: descriptor, path, root.
#pragma once

#include "client_manifest.h"

namespace client_manifest::pinned_root {

extern const host::Operation kReadRegularFile;
extern const host::Operation kReadRegularFileWithStat;
extern const host::Operation kReadOpenRegularFileWithStat;
extern const host::Operation kReadRegularFileIfPresent;
extern const host::Operation kStatRegularFile;

}  // namespace client_manifest::pinned_root
