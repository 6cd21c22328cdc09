// What is missing may be what its remover wants: asked only when something is missing.
#pragma once

#include "host/error.h"

namespace client_manifest::pinned_root {

// Whether `error`, which is being handled, is the absence of something, and `missing_ok` says that
// nothing is wrong with that.
[[nodiscard]] bool is_excused(const host::Error& error, PyObject* missing_ok);

}  // namespace client_manifest::pinned_root
