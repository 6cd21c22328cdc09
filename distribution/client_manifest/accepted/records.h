// The frozen records that validation, load and hashing give back.
#pragma once

#include "client_manifest.h"

namespace client_manifest::accepted {

[[nodiscard]] host::Reference make_accepted_distribution_set_class(PyObject* dataclass,
                                                                   PyObject* module_name);
[[nodiscard]] host::Reference make_loaded_accepted_distribution_set_class(PyObject* dataclass,
                                                                          PyObject* module_name);
[[nodiscard]] host::Reference make_contained_file_identity_class(PyObject* dataclass,
                                                                 PyObject* module_name);

}  // namespace client_manifest::accepted
