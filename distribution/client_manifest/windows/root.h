// The operations of a root on Windows that others of them call: through the instance, so that what
// a subclass or the instance puts in their place is honoured.
#pragma once

#include "client_manifest.h"
#include "windows/boundary.h"

namespace client_manifest::windows {

// A parent directory, held by whoever asked for it, and the name of the leaf in it.
struct Parent {
  OwnedHandle handle;
  host::Reference name;

  void close() { handle.close(); }
};

class Root {
 public:
  explicit Root(PyObject* self) noexcept : self_(self), boundary_(self) {}

  [[nodiscard]] PyObject* self() const noexcept { return self_; }
  [[nodiscard]] const Boundary& boundary() const noexcept { return boundary_; }
  [[nodiscard]] host::Reference get(PyObject* attribute) const {
    return host::attribute(self_, attribute);
  }
  void set(PyObject* attribute, PyObject* value) const;

  [[nodiscard]] host::Reference require_descriptor() const;
  void assert_root_unchanged() const;
  void close() const;

  [[nodiscard]] OwnedHandle open_absolute_directory(PyObject* path, PyObject* create) const;
  [[nodiscard]] OwnedHandle open_directory_components(PyObject* anchor, PyObject* components,
                                                      PyObject* label) const;
  [[nodiscard]] Parent open_parent(PyObject* relative_path, PyObject* label,
                                   PyObject* create) const;

  [[nodiscard]] Parent open_parent(PyObject* relative_path, const char* label,
                                   PyObject* create) const;
  // Forgets which file was opened for update at a path.
  void forget_update(PyObject* safe_path) const;

  void require_safe_directory(const OwnedHandle& handle, PyObject* path) const;
  void require_safe_regular(const OwnedHandle& handle, PyObject* path, PyObject* label) const;
  void require_safe_regular(const OwnedHandle& handle, PyObject* path, const char* label) const;

  void assert_replaceable_leaf(const Parent& parent, PyObject* safe_path,
                               PyObject* allow_replace) const;
  void assert_parent_path_matches(PyObject* relative_path, const Parent& expected,
                                  const char* label) const;
  void assert_directory_path_matches(PyObject* relative_path, PyObject* expected,
                                     const char* label) const;
  void assert_leaf_missing(PyObject* relative_path, const char* label) const;

 private:
  PyObject* self_;
  Boundary boundary_;
};

}  // namespace client_manifest::windows
