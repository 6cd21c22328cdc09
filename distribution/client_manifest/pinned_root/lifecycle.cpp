// A root counts as closed before anything is closed, and a failing close does not keep the other
// descriptor open.
#include "pinned_root/lifecycle.h"

#include "host/handling.h"
#include "host/value.h"
#include "pinned_root/instance.h"
#include "system/calls.h"

namespace client_manifest::pinned_root {
namespace {

using host::Arguments;
using host::Kind;
using host::Operation;
using host::Reference;

constexpr host::Signature kEnterSignature{.name = "__enter__", .kind = Kind::method};

Reference enter(PyObject* self, const Arguments& /*arguments*/) { return Reference::acquire(self); }

constexpr host::Signature kExitSignature{
    .name = "__exit__",
    .kind = Kind::method,
    .parameters = {{{"_exc_type"}, {"_exc"}, {"_traceback"}}},
};

Reference exit(PyObject* self, const Arguments& /*arguments*/) {
  const Instance root = through(self);
  host::guaranteed(
      [&] {
        if (root.get(names()._descriptor).get() != Py_None) root.assert_root_unchanged();
      },
      [&] { root.close(); });
  return Reference::acquire(Py_None);
}

constexpr host::Signature kCloseSignature{.name = "close", .kind = Kind::method};

void close_unless_none(const Reference& descriptor) {
  if (descriptor.get() != Py_None) system::close(host::as_int(descriptor.get()));
}

Reference close(PyObject* self, const Arguments& /*arguments*/) {
  const Instance root = through(self);
  const Reference descriptor = root.get(names()._descriptor);
  const Reference anchor_descriptor = root.get(names()._anchor_descriptor);
  if (descriptor.get() == Py_None && anchor_descriptor.get() == Py_None) {
    return Reference::acquire(Py_None);
  }
  root.set(names()._descriptor, Py_None);
  root.set(names()._anchor_descriptor, Py_None);
  host::guaranteed([&] { close_unless_none(descriptor); },
                   [&] { close_unless_none(anchor_descriptor); });
  return Reference::acquire(Py_None);
}

}  // namespace

constinit const Operation kEnter = Operation::of<kEnterSignature, &enter>();
constinit const Operation kExit = Operation::of<kExitSignature, &exit>();
constinit const Operation kClose = Operation::of<kCloseSignature, &close>();

}  // namespace client_manifest::pinned_root
