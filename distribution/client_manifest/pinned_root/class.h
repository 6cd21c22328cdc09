// The class PinnedRoot, with its members in the order in which they are documented.
#pragma once

#include "client_manifest.h"

namespace client_manifest::pinned_root {

[[nodiscard]] host::Reference make_pinned_root_class(PyObject* module_name);

}  // namespace client_manifest::pinned_root
