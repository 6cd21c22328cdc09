// The absolute form of a path that a caller gave, collapsed without a look at the disk.
#pragma once

#include "client_manifest.h"

namespace client_manifest::pinned_root {

// `Path(os.path.abspath(os.fspath(path)))`: no link is resolved here.
[[nodiscard]] host::Reference absolute_path(PyObject* path);

}  // namespace client_manifest::pinned_root
