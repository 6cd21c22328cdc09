// Names the real directories of a root, and makes contained ones. A new directory is not flushed:
// there is no call for it.
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
using host::Kind;
using host::Operation;
using host::Reference;
using host::take;

constexpr host::Signature kListSignature{.name = "list_directory_names", .kind = Kind::method};

// Whether the entry opens, and is a directory itself.
bool is_real_directory(const Boundary& boundary, const OwnedHandle& directory, PyObject* name) {
  OwnedHandle entry;
  try {
    entry = boundary.open_entry(directory.get(), name, /*deletes=*/false);
  } catch (const Error& error) {
    if (!error.matches(PyExc_OSError)) throw;
    return false;
  }
  return host::guaranteed(
      [&] {
        const bool is_directory = boundary.is_of_kind(entry.get(), "directory");
        const bool is_reparse = boundary.is_reparse(entry.get());
        return is_directory && !is_reparse;
      },
      [&] { entry.close(); });
}

Reference list_directory_names(PyObject* self, const Arguments& /*arguments*/) {
  const Root root(self);
  const Reference found = take(PyList_New(0));
  OwnedHandle directory = root.boundary().duplicate(root.require_descriptor().get());
  host::guaranteed(
      [&] {
        const Reference names = root.boundary().list_names(directory.get());
        host::for_each(names.get(), [&](PyObject* name) {
          if (!is_real_directory(root.boundary(), directory, name)) return;
          host::check(PyList_Append(found.get(), name));
        });
      },
      [&] { directory.close(); });
  return take(PyList_AsTuple(host::sorted(found.get()).get()));
}

constexpr host::Signature kEnsureSignature{
    .name = "ensure_directory",
    .kind = Kind::method,
    .parameters = {{{"relative_path"}}},
};

Reference ensure_directory(PyObject* self, const Arguments& arguments) {
  const Reference safe_path = documents::bound::validate_manifest_relative_path(arguments[0]);
  const Reference parts = take(PyUnicode_Split(safe_path.get(), host::text("/").get(), -1));
  const Root root(self);
  OwnedHandle current = root.boundary().duplicate(root.require_descriptor().get());
  host::guaranteed(
      [&] {
        host::for_each(parts.get(), [&](PyObject* part) {
          OwnedHandle following = root.boundary().open_directory(current, part, Py_True);
          closed_on_failure(following,
                            [&] { root.require_safe_directory(following, safe_path.get()); });
          current.close();
          current = std::move(following);
        });
        root.assert_directory_path_matches(safe_path.get(), current.get(), "contained directory");
      },
      [&] { current.close(); });
  return Reference::acquire(Py_None);
}

}  // namespace

constinit const Operation kWindowsListDirectoryNames =
    Operation::of<kListSignature, &list_directory_names>();
constinit const Operation kWindowsEnsureDirectory =
    Operation::of<kEnsureSignature, &ensure_directory>();

}  // namespace client_manifest::windows
