// The boundary of a root: the object through which all its work with the system goes. It may be a
// substitute, and is foreign code in any case: it is looked up for each call, and may raise
// anything and give back anything.
#pragma once

#include "client_manifest.h"
#include "windows/owned_handle.h"

namespace client_manifest::windows {

// How a regular file is opened.
struct RegularAccess {
  bool writable = false;
  PyObject* create = Py_False;
  bool exclusive = false;
  bool deletes = false;  // the handle may rename and delete the file
};

class Boundary {
 public:
  explicit Boundary(PyObject* root) noexcept : root_(root) {}

  [[nodiscard]] OwnedHandle open_volume(PyObject* volume_path) const;
  [[nodiscard]] OwnedHandle duplicate(PyObject* handle) const;
  [[nodiscard]] OwnedHandle open_directory(const OwnedHandle& parent, PyObject* name,
                                           PyObject* create) const;
  [[nodiscard]] OwnedHandle open_directory_to_delete(const OwnedHandle& parent,
                                                     PyObject* name) const;
  [[nodiscard]] OwnedHandle open_regular(const OwnedHandle& parent, PyObject* name,
                                         const RegularAccess& access) const;
  [[nodiscard]] OwnedHandle open_entry(PyObject* parent, PyObject* name, bool deletes) const;

  [[nodiscard]] host::Reference identity(PyObject* handle) const;
  [[nodiscard]] bool is_reparse(PyObject* handle) const;
  [[nodiscard]] bool is_of_kind(PyObject* handle, const char* kind) const;
  [[nodiscard]] host::Reference stat(const OwnedHandle& handle) const;
  [[nodiscard]] host::Reference list_names(PyObject* directory) const;

  // The file object owns the handle from the call on, also when it fails.
  [[nodiscard]] host::Reference file_object(OwnedHandle& handle, const char* mode) const;

  void rename(const OwnedHandle& source, const OwnedHandle& parent, PyObject* name,
              PyObject* replace) const;
  void delete_object(const OwnedHandle& handle) const;

 private:
  [[nodiscard]] host::Reference object() const;
  [[nodiscard]] OwnedHandle owned(host::Reference handle) const {
    return {root_, std::move(handle)};
  }

  PyObject* root_;
};

}  // namespace client_manifest::windows
