// Each call with its arguments as they stand in the operation's own signature.
#include "pinned_root/instance.h"

#include "host/method.h"
#include "host/value.h"
#include "pinned_root/hashing.h"
#include "pinned_root/leaf_proofs.h"
#include "pinned_root/pinning.h"

namespace client_manifest::pinned_root {

using host::Reference;
using system::OwnedDescriptor;

void Instance::set(PyObject* attribute, PyObject* value) const {
  host::check(PyObject_SetAttr(self_, attribute, value));
}

int Instance::require_descriptor() const {
  const host::Method method(self_, names()._require_descriptor);
  return host::as_int((method.is(kRequireDescriptor) ? pinned_root::require_descriptor(self_)
                                                     : method.call(nullptr))
                          .get());
}

void Instance::assert_root_unchanged() const {
  static_cast<void>(host::call_method(self_, names().assert_root_unchanged));
}

void Instance::close() const { static_cast<void>(host::call_method(self_, names().close)); }

OwnedDescriptor Instance::open_absolute_directory(const Reference& path, PyObject* create) const {
  const Reference opened = host::call_method_with_keywords(self_, names()._open_absolute_directory,
                                                           keywords().create, path, create);
  return OwnedDescriptor(host::as_int(opened.get()));
}

OwnedDescriptor Instance::open_directory_components(const Reference& anchor,
                                                    const Reference& components,
                                                    PyObject* label) const {
  const Reference opened = host::call_method_with_keywords(
      self_, names()._open_directory_components, keywords().label, anchor, components, label);
  return OwnedDescriptor(host::as_int(opened.get()));
}

Parent Instance::open_parent(PyObject* relative_path, PyObject* label, PyObject* create) const {
  const host::Method method(self_, names()._open_parent);
  if (method.is(kOpenParent)) {
    return pinned_root::open_parent(self_, {.label = label, .path = relative_path}, create);
  }
  const Reference opened = method.call(keywords().label_create, relative_path, label, create);
  host::Pair parent = host::unpack_pair(opened.get());
  return {OwnedDescriptor(host::as_int(parent.first.get())), std::move(parent.second)};
}

Parent Instance::open_parent(PyObject* relative_path, const char* label, PyObject* create) const {
  const Reference text = host::take(PyUnicode_FromString(label));
  return open_parent(relative_path, text.get(), create);
}

void Instance::assert_replaceable_leaf(const Parent& parent, PyObject* safe_path,
                                       PyObject* allow_replace) const {
  const host::Method method(self_, names()._assert_replaceable_leaf);
  const int descriptor = parent.descriptor.get();
  if (method.is(kAssertReplaceableLeaf)) {
    pinned_root::assert_replaceable_leaf(descriptor, parent.name.get(), safe_path, allow_replace);
    return;
  }
  const Reference number = host::integer(std::int64_t{descriptor});
  static_cast<void>(method.call(keywords().safe_path_allow_replace, number, parent.name, safe_path,
                                allow_replace));
}

Reference Instance::open_regular_file_for_read(PyObject* relative_path, PyObject* label) const {
  return host::call_method_with_keywords(self_, names().open_regular_file_for_read,
                                         keywords().label, relative_path, label);
}

Reference Instance::read_regular_file(PyObject* relative_path, PyObject* label) const {
  return host::call_method_with_keywords(self_, names().read_regular_file, keywords().label,
                                         relative_path, label);
}

Reference Instance::read_regular_file_with_stat(PyObject* relative_path, PyObject* label) const {
  return host::call_method_with_keywords(self_, names().read_regular_file_with_stat,
                                         keywords().label, relative_path, label);
}

Reference Instance::read_open_regular_file_with_stat(PyObject* file, PyObject* relative_path,
                                                     PyObject* label) const {
  return host::call_method_with_keywords(self_, names()._read_open_regular_file_with_stat,
                                         keywords().label, file, relative_path, label);
}

accepted::FileIdentity Instance::hash_regular_file(PyObject* relative_path, PyObject* label) const {
  const Reference operation = get(names().hash_regular_file);
  if (kHashRegularFile.is(operation.get(), self_)) {
    return pinned_root::hash_regular_file(self_, relative_path, label, nullptr);
  }
  return accepted::FileIdentity(
      host::call_with_keywords(operation, keywords().label, relative_path, label));
}

Reference Instance::hash_open_regular_file(PyObject* file, PyObject* relative_path, PyObject* label,
                                           PyObject* chunk_bytes) const {
  return host::call_method_with_keywords(self_, names().hash_open_regular_file,
                                         keywords().label_chunk_bytes, file, relative_path, label,
                                         chunk_bytes);
}

void Instance::assert_open_regular_file_identity(PyObject* file, PyObject* relative_path,
                                                 PyObject* label, PyObject* identity) const {
  static_cast<void>(host::call_method_with_keywords(
      self_, names().assert_open_regular_file_identity, keywords().label_identity, file,
      relative_path, label, identity));
}

void Instance::assert_path_matches_regular_file(PyObject* relative_path, PyObject* label,
                                                PyObject* expected_stat) const {
  static_cast<void>(host::call_method_with_keywords(
      self_, names()._assert_path_matches_regular_file, keywords().label_expected_stat,
      relative_path, label, expected_stat));
}

}  // namespace client_manifest::pinned_root
