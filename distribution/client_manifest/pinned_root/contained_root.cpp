// A contained root is walked, and proves itself, from a duplicate of the topmost root's descriptor
// and down the whole chain of segments, so that the chain itself is proved again each time.
#include "pinned_root/contained_root.h"

#include "documents/relative_path.h"
#include "host/handling.h"
#include "host/value.h"
#include "pinned_root/instance.h"
#include "system/calls.h"
#include "system/phase.h"

namespace client_manifest::pinned_root {
namespace {

using host::Arguments;
using host::Error;
using host::Operation;
using host::Pass;
using host::Reference;
using host::take;
using system::OwnedDescriptor;

constexpr host::Signature kSignature{
    .name = "open_contained_root",
    .kind = host::Kind::method,
    .parameters = {{{"relative_path"}, {"label", Pass::by_keyword}}},
    .documentation = "Pin an independently owned directory beneath this root.",
};

Reference segments_of(const Reference& safe_path) {
  const Reference separator = take(PyUnicode_FromString("/"));
  const Reference segments = take(PyUnicode_Split(safe_path.get(), separator.get(), -1));
  return take(PyList_AsTuple(segments.get()));
}

Reference joined_path(const Instance& root, const Reference& segments) {
  const Reference path = root.get(names().path);
  const Reference join = host::attribute(path.get(), names().joinpath);
  return take(PyObject_CallObject(join.get(), segments.get()));
}

// An instance of the type of `self` whose `__init__` has not run.
Reference uninitialised(PyObject* self) {
  auto* const type = reinterpret_cast<PyObject*>(Py_TYPE(self));
  return host::call_method(type, names().new_, type);
}

// Hands `descriptor` over to the attribute: the instance owns it from then on.
void give(const Instance& child, PyObject* attribute, OwnedDescriptor& descriptor) {
  const Reference number = take(PyLong_FromLong(descriptor.get()));
  child.set(attribute, number.get());
  static_cast<void>(descriptor.release());
}

Reference open_contained_root(PyObject* self, const Arguments& arguments) {
  PyObject* const label = arguments[1];
  const Instance root = through(self);
  const Reference safe_path = documents::bound::validate_manifest_relative_path(arguments[0]);
  root.assert_root_unchanged();

  const Reference own_anchor = root.get(names()._anchor_descriptor);
  const bool is_topmost = own_anchor.get() == Py_None;
  const Reference anchor_components =
      is_topmost ? take(PyTuple_New(0)) : root.get(names()._anchor_components);
  const int anchor_source = is_topmost ? root.require_descriptor() : host::as_int(own_anchor.get());

  OwnedDescriptor anchor_descriptor = system::duplicate(anchor_source);
  OwnedDescriptor child_descriptor;
  const Reference segments = segments_of(safe_path);
  const Reference components = take(PySequence_Concat(anchor_components.get(), segments.get()));
  return host::guaranteed(
      [&] {
        const Reference anchor_number = take(PyLong_FromLong(anchor_descriptor.get()));
        child_descriptor = root.open_directory_components(anchor_number, components, label);
        Reference child_object = uninitialised(self);
        const Instance child = through(child_object.get());
        child.set(names().path, joined_path(root, segments).get());
        give(child, names()._anchor_descriptor, anchor_descriptor);
        child.set(names()._anchor_components, components.get());
        child.set(names()._contained_root_label, label);
        give(child, names()._descriptor, child_descriptor);
        try {
          child.assert_root_unchanged();
        } catch (const Error& failure) {
          // Nobody else has seen the child, so nobody else could close it.
          const host::Handling handling(failure);
          child.close();
          throw;
        }
        return child_object;
      },
      [&] {
        host::guaranteed([&] { child_descriptor.close(); }, [&] { anchor_descriptor.close(); });
      });
}

}  // namespace

constinit const Operation kOpenContainedRoot = Operation::of<kSignature, &open_contained_root>();

}  // namespace client_manifest::pinned_root
