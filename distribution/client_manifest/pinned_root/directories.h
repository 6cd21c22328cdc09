// Names the directories of a root, and makes contained ones.
#pragma once

#include "client_manifest.h"

namespace client_manifest::pinned_root {

extern const host::Operation kListDirectoryNames;
extern const host::Operation kEnsureDirectory;

}  // namespace client_manifest::pinned_root
