// Publishes a whole new file by handle: what was staged and proved is what is renamed, and what
// the name holds afterwards is held against it. The bytes are flushed; a directory cannot be.
#include "documents/relative_path.h"
#include "host/context_manager.h"
#include "host/handling.h"
#include "host/message.h"
#include "host/value.h"
#include "pinned_root/staging_names.h"
#include "system/calls.h"
#include "windows/root.h"
#include "windows/root_operations.h"

namespace client_manifest::windows {
namespace {

using host::Arguments;
using host::Error;
using host::Operation;
using host::Pass;
using host::raise;
using host::Reference;

constexpr const char* kLabel = "contained file destination";

constexpr host::Signature kSignature{
    .name = "write_atomic",
    .kind = host::Kind::method,
    .parameters = {{{"relative_path"}, {"payload"}, {"allow_replace", Pass::by_keyword}}},
};

void fill(PyObject* file, PyObject* payload) {
  static_cast<void>(host::call_method(file, names().seek, host::integer(std::int64_t{0})));
  static_cast<void>(host::call_method(file, names().truncate));
  static_cast<void>(host::call_method(file, names().write, payload));
  static_cast<void>(host::call_method(file, names().flush));
  system::synchronize(host::as_int(host::call_method(file, names().fileno).get()));
}

// Deletes what was staged and not published; that it could not be deleted is no news.
void discard(const Root& root, const OwnedHandle& staged) {
  try {
    root.boundary().delete_object(staged);
  } catch (const Error& error) {
    if (!error.matches(PyExc_OSError)) throw;
  }
}

Reference write_atomic(PyObject* self, const Arguments& arguments) {
  const Reference safe_path = documents::bound::validate_manifest_relative_path(arguments[0]);
  PyObject* const payload = arguments[1];
  PyObject* const allow_replace = arguments[2];
  if (PyBytes_Check(payload) == 0) {
    raise(PyExc_TypeError, "contained file payload must be bytes");
  }
  const Root root(self);
  const Boundary& boundary = root.boundary();
  Parent parent = root.open_parent(safe_path.get(), kLabel, Py_True);
  const Reference temporary = pinned_root::temporary_name(parent.name);

  OwnedHandle opened;
  OwnedHandle staged;
  Reference staged_identity;
  bool published = false;

  const auto stage = [&] {
    root.assert_replaceable_leaf(parent, safe_path.get(), allow_replace);
    opened = boundary.open_regular(
        parent.handle, temporary.get(),
        {.writable = true, .create = Py_True, .exclusive = true, .deletes = true});
    root.require_safe_regular(opened, safe_path.get(), "contained staging file");
    staged = boundary.duplicate(opened.get());
    const Reference file = boundary.file_object(opened, "r+b");
    static_cast<void>(host::with(file.get(), [&](PyObject* entered) {
      fill(entered, payload);
      return Reference::acquire(Py_None);
    }));
    staged_identity = boundary.identity(staged.get());
  };

  const auto prove_published = [&] {
    OwnedHandle leaf = boundary.open_regular(parent.handle, parent.name.get(), {});
    host::guaranteed(
        [&] {
          root.require_safe_regular(leaf, safe_path.get(), "contained file");
          if (host::differ(boundary.identity(leaf.get()).get(), staged_identity.get())) {
            boundary.delete_object(staged);
            raise(PyExc_ValueError,
                  "contained file staging leaf changed during publish: ", safe_path);
          }
        },
        [&] { leaf.close(); });
  };

  const auto publish = [&] {
    root.assert_replaceable_leaf(parent, safe_path.get(), allow_replace);
    root.assert_parent_path_matches(safe_path.get(), parent, kLabel);
    boundary.rename(staged, parent.handle, parent.name.get(), allow_replace);
    root.assert_parent_path_matches(safe_path.get(), parent, kLabel);
    prove_published();
    // From here on the file stays, whatever becomes of the root.
    published = true;
    root.assert_root_unchanged();
  };

  const auto clean_up = [&] {
    host::guaranteed(
        [&] {
          opened.close();
          if (staged && !published) discard(root, staged);
        },
        [&] {
          close_all({&staged, &parent.handle});
        });
  };

  host::guaranteed(
      [&] {
        stage();
        publish();
      },
      clean_up);
  return Reference::acquire(Py_None);
}

}  // namespace

constinit const Operation kWindowsWriteAtomic = Operation::of<kSignature, &write_atomic>();

}  // namespace client_manifest::windows
