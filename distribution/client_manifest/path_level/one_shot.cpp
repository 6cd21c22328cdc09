// The class is looked up when a function runs, so that all of them use the one that the platform
// has, or that a caller has put in its place.
#include "path_level/one_shot.h"

namespace client_manifest::path_level {

using host::Reference;

Reference pin(PyObject* root) { return host::call(global(names().PinnedRoot), root); }

Reference pin_or_create(PyObject* root) {
  return host::call_with_keywords(global(names().PinnedRoot), keywords().create, root, Py_True);
}

void prove(PyObject* pinned) {
  static_cast<void>(host::call_method(pinned, names().assert_root_unchanged));
}

}  // namespace client_manifest::path_level
