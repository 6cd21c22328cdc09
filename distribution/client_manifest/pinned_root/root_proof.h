// Proves that the path by which a root was pinned still leads to the pinned directory.
#pragma once

#include "client_manifest.h"
#include "pinned_root/refusal.h"
#include "system/owned_descriptor.h"

namespace client_manifest::pinned_root {

// What replaces any failure to walk the path again.
[[nodiscard]] Wording root_became_unsafe();

// Requires `current` to be the pinned directory. Needs no interpreter lock.
void require_pinned_directory(int pinned, const system::OwnedDescriptor& current);

extern const host::Operation kAssertRootUnchanged;

}  // namespace client_manifest::pinned_root
