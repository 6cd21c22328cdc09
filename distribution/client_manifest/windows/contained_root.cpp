// A contained root is walked, and proves itself, from a duplicate of the topmost root's handle and
// down the whole chain of segments. It shares nothing with its creator but the boundary.
#include "documents/relative_path.h"
#include "host/handling.h"
#include "host/message.h"
#include "host/value.h"
#include "windows/root.h"
#include "windows/root_operations.h"

namespace client_manifest::windows {
namespace {

using host::Arguments;
using host::Error;
using host::Operation;
using host::Pass;
using host::Reference;
using host::take;

constexpr host::Signature kSignature{
    .name = "open_contained_root",
    .kind = host::Kind::method,
    .parameters = {{{"relative_path"}, {"label", Pass::by_keyword}}},
};

Reference segments_of(const Reference& safe_path) {
  const Reference segments = take(PyUnicode_Split(safe_path.get(), host::text("/").get(), -1));
  return take(PyList_AsTuple(segments.get()));
}

// What a child has in common with the root that makes it.
void take_over(const Root& root, const Root& child) {
  for (PyObject* const attribute :
       {names()._boundary, names()._volume_path, names()._root_components}) {
    child.set(attribute, root.get(attribute).get());
  }
}

void prove_child(const Root& child) {
  try {
    const Reference descriptor = child.get(names()._descriptor);
    child.set(names()._root_identity, child.boundary().identity(descriptor.get()).get());
    child.assert_root_unchanged();
  } catch (const Error& error) {
    // Nobody else has seen the child, so nobody else could close it.
    const host::Handling handling(error);
    child.close();
    throw;
  }
}

Reference open_contained_root(PyObject* self, const Arguments& arguments) {
  const Reference safe_path = documents::bound::validate_manifest_relative_path(arguments[0]);
  PyObject* const label = arguments[1];
  const Root root(self);
  root.assert_root_unchanged();

  const Reference own_anchor = root.get(names()._anchor_handle);
  const bool is_topmost = own_anchor.get() == Py_None;
  const Reference anchor_source =
      is_topmost ? root.require_descriptor() : Reference::acquire(own_anchor.get());
  const Reference anchor_components =
      is_topmost ? take(PyTuple_New(0)) : root.get(names()._anchor_components);
  OwnedHandle anchor_handle = root.boundary().duplicate(anchor_source.get());
  OwnedHandle child_handle;

  return host::guaranteed(
      [&] {
        const Reference segments = segments_of(safe_path);
        const Reference components =
            take(PySequence_Concat(anchor_components.get(), segments.get()));
        child_handle = root.open_directory_components(anchor_handle.get(), components.get(), label);
        auto* const type = reinterpret_cast<PyObject*>(Py_TYPE(self));
        Reference made = host::call_method(type, names().new_, type);
        const Root child(made.get());
        const Reference path = root.get(names().path);
        const Reference join = host::attribute(path.get(), names().joinpath);
        child.set(names().path, take(PyObject_CallObject(join.get(), segments.get())).get());
        take_over(root, child);
        child.set(names()._anchor_handle, anchor_handle.get());
        child.set(names()._anchor_components, components.get());
        child.set(names()._contained_root_label, label);
        child.set(names()._pending_update_identities, take(PyDict_New()).get());
        child.set(names()._descriptor, child_handle.get());
        // Only now both are the child's.
        static_cast<void>(anchor_handle.release());
        static_cast<void>(child_handle.release());
        prove_child(child);
        return made;
      },
      [&] {
        close_all({&child_handle, &anchor_handle});
      });
}

}  // namespace

constinit const Operation kWindowsOpenContainedRoot =
    Operation::of<kSignature, &open_contained_root>();

}  // namespace client_manifest::windows
