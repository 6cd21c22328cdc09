// Opens a contained leaf as a file of the host's, which owns the handle from then on.
#include "documents/relative_path.h"
#include "host/handling.h"
#include "host/message.h"
#include "windows/root.h"
#include "windows/root_operations.h"

namespace client_manifest::windows {
namespace {

using host::Arguments;
using host::Error;
using host::Kind;
using host::Operation;
using host::Pass;
using host::raise_from;
using host::Reference;

// Runs `open`, and closes what it still holds and then the parent on every exit.
template <class Open>
Reference opened_beneath(Parent parent, Open&& open) {
  OwnedHandle opened;
  return host::guaranteed([&] { return open(parent, opened); },
                          [&] {
                            close_all({&opened, &parent.handle});
                          });
}

constexpr host::Signature kUpdateSignature{
    .name = "open_regular_file_for_update",
    .kind = Kind::method,
    .parameters = {{{"relative_path"}, {"create", Pass::by_keyword}}},
};

// Remembers which file was opened, for the replacement that may follow.
Reference open_regular_file_for_update(PyObject* self, const Arguments& arguments) {
  const Reference safe_path = documents::bound::validate_manifest_relative_path(arguments[0]);
  PyObject* const create = arguments[1];
  constexpr const char* label = "contained update file";
  const Root root(self);
  return opened_beneath(
      root.open_parent(safe_path.get(), label, create), [&](Parent& parent, OwnedHandle& opened) {
        try {
          opened = root.boundary().open_regular(parent.handle, parent.name.get(),
                                                {.writable = true, .create = create});
          root.require_safe_regular(opened, safe_path.get(), label);
          const Reference identity = root.boundary().identity(opened.get());
          const Reference pending = root.get(names()._pending_update_identities);
          host::check(PyObject_SetItem(pending.get(), safe_path.get(), identity.get()));
          return root.boundary().file_object(opened, "r+b");
        } catch (const Error& error) {
          if (!error.matches(PyExc_OSError)) throw;
          raise_from(error, PyExc_ValueError,
                     "contained update file is a reparse point or is unsafe: ", safe_path);
        }
      });
}

constexpr host::Signature kReadSignature{
    .name = "open_regular_file_for_read",
    .kind = Kind::method,
    .parameters = {{{"relative_path"}, {"label", Pass::by_keyword}}},
};

Reference open_regular_file_for_read(PyObject* self, const Arguments& arguments) {
  const Reference safe_path = documents::bound::validate_manifest_relative_path(arguments[0]);
  PyObject* const label = arguments[1];
  const Root root(self);
  return opened_beneath(
      root.open_parent(safe_path.get(), label, Py_False), [&](Parent& parent, OwnedHandle& opened) {
        try {
          opened = root.boundary().open_regular(parent.handle, parent.name.get(), {});
          root.require_safe_regular(opened, safe_path.get(), label);
          return root.boundary().file_object(opened, "rb");
        } catch (const Error& error) {
          if (!error.matches(PyExc_OSError) || error.matches(PyExc_FileNotFoundError)) throw;
          raise_from(error, PyExc_ValueError, label,
                     " is a reparse point or is not safely readable: ", safe_path);
        }
      });
}

}  // namespace

constinit const Operation kWindowsOpenRegularFileForUpdate =
    Operation::of<kUpdateSignature, &open_regular_file_for_update>();
constinit const Operation kWindowsOpenRegularFileForRead =
    Operation::of<kReadSignature, &open_regular_file_for_read>();

}  // namespace client_manifest::windows
