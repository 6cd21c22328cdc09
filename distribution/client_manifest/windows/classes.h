// The two classes of the room: the native boundary, and the root that works through one. Both are
// made on every platform; only an instance of the boundary needs Windows.
#pragma once

#include "client_manifest.h"

namespace client_manifest::windows {

[[nodiscard]] host::Reference make_handle_file_system_class(PyObject* module_name);
[[nodiscard]] host::Reference make_windows_pinned_root_class(PyObject* posix_pinned_root,
                                                             PyObject* module_name);

}  // namespace client_manifest::windows
