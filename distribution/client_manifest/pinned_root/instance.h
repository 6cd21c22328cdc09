// Calls an instance's operations as the host calls them: through the instance, so that whatever a
// subclass or the instance itself puts in the place of an operation is honoured. What is still ours
// and is called for every file is run without the detour through host values.
#pragma once

#include "accepted/file_identity.h"
#include "client_manifest.h"
#include "pinned_root/parent.h"
#include "system/owned_descriptor.h"

namespace client_manifest::pinned_root {

class Instance {
 public:
  explicit Instance(PyObject* self) noexcept : self_(self) {}

  [[nodiscard]] host::Reference get(PyObject* attribute) const {
    return host::attribute(self_, attribute);
  }
  void set(PyObject* attribute, PyObject* value) const;

  [[nodiscard]] int require_descriptor() const;
  void assert_root_unchanged() const;
  void close() const;

  [[nodiscard]] system::OwnedDescriptor open_absolute_directory(const host::Reference& path,
                                                                PyObject* create) const;
  [[nodiscard]] system::OwnedDescriptor open_directory_components(const host::Reference& anchor,
                                                                  const host::Reference& components,
                                                                  PyObject* label) const;
  [[nodiscard]] Parent open_parent(PyObject* relative_path, PyObject* label,
                                   PyObject* create) const;
  [[nodiscard]] Parent open_parent(PyObject* relative_path, const char* label,
                                   PyObject* create) const;
  void assert_replaceable_leaf(const Parent& parent, PyObject* safe_path,
                               PyObject* allow_replace) const;

  [[nodiscard]] host::Reference open_regular_file_for_read(PyObject* relative_path,
                                                           PyObject* label) const;
  [[nodiscard]] host::Reference read_regular_file(PyObject* relative_path, PyObject* label) const;
  [[nodiscard]] host::Reference read_regular_file_with_stat(PyObject* relative_path,
                                                            PyObject* label) const;
  [[nodiscard]] host::Reference read_open_regular_file_with_stat(PyObject* file,
                                                                 PyObject* relative_path,
                                                                 PyObject* label) const;
  [[nodiscard]] accepted::FileIdentity hash_regular_file(PyObject* relative_path,
                                                         PyObject* label) const;
  [[nodiscard]] host::Reference hash_open_regular_file(PyObject* file, PyObject* relative_path,
                                                       PyObject* label,
                                                       PyObject* chunk_bytes) const;
  void assert_open_regular_file_identity(PyObject* file, PyObject* relative_path, PyObject* label,
                                         PyObject* identity) const;
  void assert_path_matches_regular_file(PyObject* relative_path, PyObject* label,
                                        PyObject* expected_stat) const;

 private:
  PyObject* self_;
};

[[nodiscard]] inline Instance through(PyObject* self) noexcept { return Instance(self); }

}  // namespace client_manifest::pinned_root
