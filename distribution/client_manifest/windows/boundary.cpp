// Each call with the keywords that say something, as the boundary's operations declare them.
#include "windows/boundary.h"

#include <vector>

#include "host/message.h"
#include "host/value.h"

namespace client_manifest::windows {

using host::invoke;
using host::Reference;

Reference Boundary::object() const { return host::attribute(root_, names()._boundary); }

OwnedHandle Boundary::open_volume(PyObject* volume_path) const {
  return owned(invoke(object().get(), "open_volume", {volume_path}));
}

OwnedHandle Boundary::duplicate(PyObject* handle) const {
  return owned(invoke(object().get(), "duplicate", {handle}));
}

OwnedHandle Boundary::open_directory(const OwnedHandle& parent, PyObject* name,
                                     PyObject* create) const {
  return owned(
      invoke(object().get(), "open_directory", {parent.get(), name}, {{"create", create}}));
}

OwnedHandle Boundary::open_directory_to_delete(const OwnedHandle& parent, PyObject* name) const {
  return owned(invoke(object().get(), "open_directory", {parent.get(), name},
                      {{"create", Py_False}, {"delete", Py_True}}));
}

OwnedHandle Boundary::open_regular(const OwnedHandle& parent, PyObject* name,
                                   const RegularAccess& access) const {
  std::vector<host::Keyword> named{{"writable", access.writable ? Py_True : Py_False},
                                   {"create", access.create}};
  if (access.exclusive) named.push_back({"exclusive", Py_True});
  if (access.deletes) named.push_back({"delete", Py_True});
  return owned(invoke(object().get(), "open_regular", {parent.get(), name}, named));
}

OwnedHandle Boundary::open_entry(PyObject* parent, PyObject* name, bool deletes) const {
  return owned(invoke(object().get(), "open_entry", {parent, name},
                      {{"delete", deletes ? Py_True : Py_False}}));
}

Reference Boundary::identity(PyObject* handle) const {
  return invoke(object().get(), "identity", {handle});
}

bool Boundary::is_of_kind(PyObject* handle, const char* kind) const {
  const Reference found = invoke(object().get(), "kind", {handle});
  return host::equal(found.get(), host::text(kind).get());
}

bool Boundary::is_reparse(PyObject* handle) const {
  return host::is_true(invoke(object().get(), "is_reparse", {handle}).get());
}

Reference Boundary::stat(const OwnedHandle& handle) const {
  return invoke(object().get(), "stat", {handle.get()});
}

Reference Boundary::list_names(PyObject* directory) const {
  return invoke(object().get(), "list_names", {directory});
}

Reference Boundary::file_object(OwnedHandle& handle, const char* mode) const {
  const Reference make = host::attribute(object().get(), "file_object");
  const Reference mode_text = host::text(mode);
  return host::call(make, handle.release(), mode_text);
}

void Boundary::rename(const OwnedHandle& source, const OwnedHandle& parent, PyObject* name,
                      PyObject* replace) const {
  static_cast<void>(
      invoke(object().get(), "rename", {source.get(), parent.get(), name}, {{"replace", replace}}));
}

void Boundary::delete_object(const OwnedHandle& handle) const {
  static_cast<void>(invoke(object().get(), "delete", {handle.get()}));
}

}  // namespace client_manifest::windows
