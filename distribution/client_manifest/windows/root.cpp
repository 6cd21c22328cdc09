// Each call with its arguments as they stand in the operation's own signature.
#include "windows/root.h"

#include "host/message.h"
#include "host/value.h"

namespace client_manifest::windows {

using host::invoke;
using host::Reference;

void Root::set(PyObject* attribute, PyObject* value) const {
  host::check(PyObject_SetAttr(self_, attribute, value));
}

Reference Root::require_descriptor() const { return invoke(self_, "_require_descriptor", {}); }

void Root::assert_root_unchanged() const {
  static_cast<void>(host::call_method(self_, names().assert_root_unchanged));
}

void Root::close() const { static_cast<void>(host::call_method(self_, names().close)); }

OwnedHandle Root::open_absolute_directory(PyObject* path, PyObject* create) const {
  return {self_, invoke(self_, "_open_absolute_directory", {path}, {{"create", create}})};
}

OwnedHandle Root::open_directory_components(PyObject* anchor, PyObject* components,
                                            PyObject* label) const {
  return {self_,
          invoke(self_, "_open_directory_components", {anchor, components}, {{"label", label}})};
}

Parent Root::open_parent(PyObject* relative_path, PyObject* label, PyObject* create) const {
  const Reference opened =
      invoke(self_, "_open_parent", {relative_path}, {{"label", label}, {"create", create}});
  host::Pair parent = host::unpack_pair(opened.get());
  return {{self_, std::move(parent.first)}, std::move(parent.second)};
}

Parent Root::open_parent(PyObject* relative_path, const char* label, PyObject* create) const {
  return open_parent(relative_path, host::text(label).get(), create);
}

void Root::forget_update(PyObject* safe_path) const {
  const Reference pending = get(names()._pending_update_identities);
  static_cast<void>(invoke(pending.get(), "pop", {safe_path, Py_None}));
}

void Root::require_safe_directory(const OwnedHandle& handle, PyObject* path) const {
  static_cast<void>(invoke(self_, "_require_safe_directory", {handle.get(), path}));
}

void Root::require_safe_regular(const OwnedHandle& handle, PyObject* path, PyObject* label) const {
  static_cast<void>(invoke(self_, "_require_safe_regular", {handle.get(), path, label}));
}

void Root::require_safe_regular(const OwnedHandle& handle, PyObject* path,
                                const char* label) const {
  require_safe_regular(handle, path, host::text(label).get());
}

void Root::assert_replaceable_leaf(const Parent& parent, PyObject* safe_path,
                                   PyObject* allow_replace) const {
  static_cast<void>(invoke(self_, "_assert_replaceable_leaf",
                           {parent.handle.get(), parent.name.get()},
                           {{"safe_path", safe_path}, {"allow_replace", allow_replace}}));
}

void Root::assert_parent_path_matches(PyObject* relative_path, const Parent& expected,
                                      const char* label) const {
  static_cast<void>(
      invoke(self_, "_assert_parent_path_matches", {relative_path},
             {{"expected_parent", expected.handle.get()}, {"label", host::text(label).get()}}));
}

void Root::assert_directory_path_matches(PyObject* relative_path, PyObject* expected,
                                         const char* label) const {
  static_cast<void>(invoke(self_, "_assert_directory_path_matches", {relative_path},
                           {{"expected_directory", expected}, {"label", host::text(label).get()}}));
}

void Root::assert_leaf_missing(PyObject* relative_path, const char* label) const {
  static_cast<void>(
      invoke(self_, "_assert_leaf_missing", {relative_path}, {{"label", host::text(label).get()}}));
}

}  // namespace client_manifest::windows
