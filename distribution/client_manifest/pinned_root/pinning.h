// Pins a root: opens one real directory from "/" or from an anchor, segment by segment.
#pragma once

#include "client_manifest.h"

namespace client_manifest::pinned_root {

// The descriptor attribute of a root that is not closed.
[[nodiscard]] host::Reference require_descriptor(PyObject* self);

extern const host::Operation kInit;
extern const host::Operation kOpenAbsoluteDirectory;
extern const host::Operation kOpenDirectoryComponents;
extern const host::Operation kRequireDescriptor;

}  // namespace client_manifest::pinned_root
