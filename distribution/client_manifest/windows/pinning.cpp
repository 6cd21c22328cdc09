// Pins a root by handle, proves it by the identity that it had then, and lets it go.
#include "host/handling.h"
#include "host/message.h"
#include "host/value.h"
#include "windows/root.h"
#include "windows/root_operations.h"

namespace client_manifest::windows {
namespace {

using host::Arguments;
using host::Error;
using host::Kind;
using host::Operation;
using host::Pass;
using host::Reference;
using host::take;

constexpr host::Signature kInitSignature{
    .name = "__init__",
    .kind = Kind::method,
    .parameters = {{{"root"},
                    {"create", Pass::by_keyword, "False"},
                    {"_boundary", Pass::by_keyword, "None"}}},
};

// The host's absolute form is taken on Windows only: elsewhere it would not be that of a Windows
// path, and the text goes to the boundary as it came.
Reference root_path_of(PyObject* root) {
  const Reference os = global(names().os);
  Reference text = host::call_method(os.get(), names().fspath, root);
  const Reference platform = host::attribute(os.get(), names().name);
  if (!host::equal(platform.get(), host::text("nt").get())) return text;
  return host::call_method(host::attribute(os.get(), names().path).get(), names().abspath, text);
}

Reference boundary_or_native(PyObject* given) {
  if (given != nullptr && host::is_true(given)) return Reference::acquire(given);
  return host::call(global(names().windows_handle_file_system));
}

// The pin counts only with its identity; without one it is given back.
void record_identity(const Root& root) {
  const Reference descriptor = root.get(names()._descriptor);
  try {
    root.set(names()._root_identity, root.boundary().identity(descriptor.get()).get());
  } catch (const Error& error) {
    if (!error.matches(PyExc_Exception)) throw;
    const host::Handling handling(error);
    OwnedHandle(root.self(), Reference::acquire(descriptor.get())).close();
    root.set(names()._descriptor, Py_None);
    throw;
  }
}

Reference init(PyObject* self, const Arguments& arguments) {
  PyObject* const create = arguments.get(1, Py_False);
  const Root root(self);
  const Reference root_path = root_path_of(arguments[0]);
  const Reference path = host::call(global(names().Path), root_path);
  root.set(names().path, path.get());
  const Reference boundary = boundary_or_native(arguments[2]);
  root.set(names()._boundary, boundary.get());
  const host::Pair split =
      host::unpack_pair(host::invoke(boundary.get(), "split_root_path", {root_path.get()}).get());
  root.set(names()._volume_path, split.first.get());
  root.set(names()._root_components, split.second.get());
  root.set(names()._anchor_handle, Py_None);
  root.set(names()._anchor_components, take(PyTuple_New(0)).get());
  root.set(names()._contained_root_label, Py_None);
  root.set(names()._pending_update_identities, take(PyDict_New()).get());
  OwnedHandle pinned = root.open_absolute_directory(path.get(), create);
  root.set(names()._descriptor, pinned.get());
  static_cast<void>(pinned.release());
  record_identity(root);
  return Reference::acquire(Py_None);
}

constexpr host::Signature kCloseSignature{.name = "close", .kind = Kind::method};

// A root counts as closed before anything is closed, and a failing close does not keep the other
// handle open.
Reference close(PyObject* self, const Arguments& /*arguments*/) {
  const Root root(self);
  const Reference descriptor = root.get(names()._descriptor);
  const Reference anchor_handle = root.get(names()._anchor_handle);
  if (descriptor.get() == Py_None && anchor_handle.get() == Py_None) {
    return Reference::acquire(Py_None);
  }
  root.set(names()._descriptor, Py_None);
  root.set(names()._anchor_handle, Py_None);
  OwnedHandle pinned(self, Reference::acquire(descriptor.get()));
  OwnedHandle anchor(self, Reference::acquire(anchor_handle.get()));
  close_all({&pinned, &anchor});
  return Reference::acquire(Py_None);
}

constexpr host::Signature kProofSignature{
    .name = "assert_root_unchanged",
    .kind = Kind::method,
};

// By the route that made the pin.
OwnedHandle walk_again(const Root& root) {
  const Reference anchor = root.get(names()._anchor_handle);
  if (anchor.get() == Py_None) {
    return root.open_absolute_directory(root.get(names().path).get(), Py_False);
  }
  const Reference given_label = root.get(names()._contained_root_label);
  const Reference label = host::is_true(given_label.get()) ? Reference::acquire(given_label.get())
                                                           : host::text("contained root");
  return root.open_directory_components(anchor.get(), root.get(names()._anchor_components).get(),
                                        label.get());
}

Reference assert_root_unchanged(PyObject* self, const Arguments& /*arguments*/) {
  const Root root(self);
  OwnedHandle current;
  try {
    current = walk_again(root);
  } catch (const Error& error) {
    if (!error.matches(PyExc_OSError) && !error.matches(PyExc_ValueError)) throw;
    host::raise_from(error, PyExc_ValueError,
                     "pinned root canonical path changed or became unsafe during operation");
  }
  host::guaranteed(
      [&] {
        const Reference identity = root.boundary().identity(current.get());
        if (host::differ(identity.get(), root.get(names()._root_identity).get())) {
          host::raise(PyExc_ValueError, "pinned root canonical path changed during operation");
        }
      },
      [&] { current.close(); });
  return Reference::acquire(Py_None);
}

}  // namespace

constinit const Operation kWindowsInit = Operation::of<kInitSignature, &init>();
constinit const Operation kWindowsClose = Operation::of<kCloseSignature, &close>();
constinit const Operation kWindowsAssertRootUnchanged =
    Operation::of<kProofSignature, &assert_root_unchanged>();

}  // namespace client_manifest::windows
