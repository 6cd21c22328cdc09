// Judges what has been opened: a reparse object is refused before its kind is looked at, so that a
// link is always called unsafe and never by the kind of thing that it is.
#include "host/message.h"
#include "windows/root.h"
#include "windows/root_operations.h"

namespace client_manifest::windows {
namespace {

using host::Arguments;
using host::Kind;
using host::Operation;
using host::raise;
using host::Reference;

constexpr host::Signature kDirectorySignature{
    .name = "_require_safe_directory",
    .kind = Kind::method,
    .parameters = {{{"handle"}, {"path"}}},
};

Reference require_safe_directory(PyObject* self, const Arguments& arguments) {
  const Boundary boundary(self);
  PyObject* const handle = arguments[0];
  PyObject* const path = arguments[1];
  if (boundary.is_reparse(handle)) {
    raise(PyExc_ValueError, "contained directory is an unsafe reparse point: ", path);
  }
  if (!boundary.is_of_kind(handle, "directory")) {
    raise(PyExc_ValueError, "contained path must be a directory: ", path);
  }
  return Reference::acquire(Py_None);
}

constexpr host::Signature kRegularSignature{
    .name = "_require_safe_regular",
    .kind = Kind::method,
    .parameters = {{{"handle"}, {"path"}, {"label"}}},
};

Reference require_safe_regular(PyObject* self, const Arguments& arguments) {
  const Boundary boundary(self);
  PyObject* const handle = arguments[0];
  PyObject* const path = arguments[1];
  PyObject* const label = arguments[2];
  if (boundary.is_reparse(handle)) {
    raise(PyExc_ValueError, label, " is an unsafe reparse point: ", path);
  }
  if (!boundary.is_of_kind(handle, "regular")) {
    raise(PyExc_ValueError, label, " must be a regular file: ", path);
  }
  return Reference::acquire(Py_None);
}

}  // namespace

constinit const Operation kRequireSafeDirectory =
    Operation::of<kDirectorySignature, &require_safe_directory>();
constinit const Operation kRequireSafeRegular =
    Operation::of<kRegularSignature, &require_safe_regular>();

}  // namespace client_manifest::windows
