// Binds every name of the module, in the fixed order in which they depend on one another.
#pragma once

#include "client_manifest.h"

namespace client_manifest::frame {

void bind_all(PyObject* module);

}  // namespace client_manifest::frame
