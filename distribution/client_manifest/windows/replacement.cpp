// Moves a file onto another leaf by its handle, then opens the destination afresh and holds what
// it is against what was moved. What is not that file is not left for it: the moved one is deleted.
#include "documents/relative_path.h"
#include "host/handling.h"
#include "host/message.h"
#include "host/value.h"
#include "windows/root.h"
#include "windows/root_operations.h"

namespace client_manifest::windows {
namespace {

using host::Arguments;
using host::Kind;
using host::Operation;
using host::raise;
using host::Reference;

// What sets replacing and moving apart.
struct Twin {
  const char* source_label;
  const char* destination_label;
  const char* published_label;
  const char* changed;
  bool expects_the_updated_file;  // a file that was opened for update must still be that one
  bool proves_both_roots;
};

constexpr Twin kReplacement{
    .source_label = "contained replacement source",
    .destination_label = "contained replacement destination",
    .published_label = "contained replacement",
    .changed = "contained replacement source changed before publish: ",
    .expects_the_updated_file = true,
    .proves_both_roots = false,
};

constexpr Twin kMove{
    .source_label = "contained move source",
    .destination_label = "contained move destination",
    .published_label = "contained move destination",
    .changed = "contained move source changed before publish: ",
    .expects_the_updated_file = false,
    .proves_both_roots = true,
};

// A contained path beneath the root that owns it.
struct Place {
  Root root;
  PyObject* path;
};

void require_updated_file(const Root& root, const Reference& source, const Reference& identity) {
  const Reference pending = root.get(names()._pending_update_identities);
  const Reference expected = host::get(pending.get(), source.get());
  if (expected.get() != Py_None && host::differ(identity.get(), expected.get())) {
    raise(PyExc_ValueError, "contained replacement source identity changed: ", source);
  }
}

void transfer(const Place& from, const Place& to, const Twin& twin) {
  const Reference source = documents::bound::validate_manifest_relative_path(from.path);
  const Reference destination = documents::bound::validate_manifest_relative_path(to.path);
  const Boundary& boundary = from.root.boundary();

  Parent source_parent = from.root.open_parent(source.get(), twin.source_label, Py_False);
  OwnedHandle source_handle;
  Parent destination_parent;
  OwnedHandle leaf;

  const auto prove_parents = [&] {
    from.root.assert_parent_path_matches(source.get(), source_parent, twin.source_label);
    to.root.assert_parent_path_matches(destination.get(), destination_parent,
                                       twin.destination_label);
  };

  const auto carry = [&] {
    source_handle =
        boundary.open_regular(source_parent.handle, source_parent.name.get(), {.deletes = true});
    from.root.require_safe_regular(source_handle, source.get(), twin.source_label);
    const Reference source_identity = boundary.identity(source_handle.get());
    if (twin.expects_the_updated_file) require_updated_file(from.root, source, source_identity);

    destination_parent = to.root.open_parent(destination.get(), twin.destination_label, Py_True);
    to.root.assert_replaceable_leaf(destination_parent, destination.get(), Py_True);
    prove_parents();
    boundary.rename(source_handle, destination_parent.handle, destination_parent.name.get(),
                    Py_True);
    prove_parents();

    leaf = boundary.open_regular(destination_parent.handle, destination_parent.name.get(), {});
    from.root.require_safe_regular(leaf, destination.get(), twin.published_label);
    if (host::differ(boundary.identity(leaf.get()).get(), source_identity.get())) {
      boundary.delete_object(source_handle);
      raise(PyExc_ValueError, twin.changed, source);
    }
    from.root.forget_update(source.get());
    from.root.assert_root_unchanged();
    if (twin.proves_both_roots) to.root.assert_root_unchanged();
  };

  const auto clean_up = [&] {
    close_all({&leaf, &source_handle, &destination_parent.handle, &source_parent.handle});
  };
  host::guaranteed(carry, clean_up);
}

constexpr host::Signature kReplaceSignature{
    .name = "replace_regular_file",
    .kind = Kind::method,
    .parameters = {{{"source_relative_path"}, {"destination_relative_path"}}},
};

Reference replace_regular_file(PyObject* self, const Arguments& arguments) {
  const Root root(self);
  transfer({.root = root, .path = arguments[0]}, {.root = root, .path = arguments[1]},
           kReplacement);
  return Reference::acquire(Py_None);
}

constexpr host::Signature kMoveSignature{
    .name = "move_regular_file_to",
    .kind = Kind::method,
    .parameters = {{{"source_relative_path"}, {"destination_root"}, {"destination_relative_path"}}},
};

Reference move_regular_file_to(PyObject* self, const Arguments& arguments) {
  PyObject* const destination_root = arguments[1];
  const Reference kind = global(names().windows_pinned_root);
  if (host::check(PyObject_IsInstance(destination_root, kind.get())) == 0) {
    raise(PyExc_TypeError, "Windows contained moves require a Windows pinned root");
  }
  transfer({.root = Root(self), .path = arguments[0]},
           {.root = Root(destination_root), .path = arguments[2]}, kMove);
  return Reference::acquire(Py_None);
}

}  // namespace

constinit const Operation kWindowsReplaceRegularFile =
    Operation::of<kReplaceSignature, &replace_regular_file>();
constinit const Operation kWindowsMoveRegularFileTo =
    Operation::of<kMoveSignature, &move_regular_file_to>();

}  // namespace client_manifest::windows
