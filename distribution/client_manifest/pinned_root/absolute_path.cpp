// Leaves all of it to the host's own path functions.
#include "pinned_root/absolute_path.h"

namespace client_manifest::pinned_root {

using host::Reference;

Reference absolute_path(PyObject* path) {
  const Reference os = global(names().os);
  const Reference text = host::call_method(os.get(), names().fspath, path);
  const Reference os_path = host::attribute(os.get(), names().path);
  const Reference absolute = host::call_method(os_path.get(), names().abspath, text);
  return host::call(global(names().Path), absolute);
}

}  // namespace client_manifest::pinned_root
