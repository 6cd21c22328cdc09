// Tells which distribution the manifest on this machine describes: its version, market and era, or
// nothing when no usable manifest is there.
#pragma once

#include "client_manifest.h"

namespace client_manifest::path_level {

extern const host::Operation kPositiveManifestInt;
extern const host::Operation kManifestMetadataFromPath;
extern const host::Operation kLocalClientManifestMetadata;

}  // namespace client_manifest::path_level
