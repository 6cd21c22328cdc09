// Hands an open descriptor over to a file object of the host's.
#pragma once

#include "client_manifest.h"
#include "system/owned_descriptor.h"

namespace client_manifest::pinned_root {

// What `os.fdopen` gives for "rb" and for "r+b". The file object owns the descriptor from then on;
// where none could be made, the descriptor is still the caller's, unless it has been closed.
[[nodiscard]] host::Reference buffered_reader(system::OwnedDescriptor& file);
[[nodiscard]] host::Reference buffered_random(system::OwnedDescriptor& file);

}  // namespace client_manifest::pinned_root
