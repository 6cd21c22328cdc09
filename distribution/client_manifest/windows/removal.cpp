// Removes one contained regular file by its handle, and proves that nothing is left at its name.
#include "host/handling.h"
#include "host/message.h"
#include "pinned_root/absence.h"
#include "windows/root.h"
#include "windows/root_operations.h"

namespace client_manifest::windows {
namespace {

using host::Arguments;
using host::Operation;
using host::Pass;
using host::Reference;
using pinned_root::removed_beneath_parent;
using pinned_root::unless_excused;

constexpr const char* kLabel = "contained removal file";

constexpr host::Signature kSignature{
    .name = "remove_regular_file",
    .kind = host::Kind::method,
    .parameters = {{{"relative_path"}, {"missing_ok", Pass::by_keyword}}},
};

Reference remove_regular_file(PyObject* self, const Arguments& arguments) {
  PyObject* const missing_ok = arguments[1];
  const Root root(self);
  const auto remove = [&](const Parent& parent, PyObject* safe_path) {
    auto opened = unless_excused(missing_ok, [&] {
      return root.boundary().open_regular(parent.handle, parent.name.get(), {.deletes = true});
    });
    if (!opened) return false;
    host::guaranteed(
        [&] {
          root.require_safe_regular(*opened, safe_path, kLabel);
          root.assert_parent_path_matches(safe_path, parent, kLabel);
          root.boundary().delete_object(*opened);
          // Only now the object goes.
          opened->close();
          root.assert_leaf_missing(safe_path, kLabel);
          root.assert_parent_path_matches(safe_path, parent, kLabel);
          root.forget_update(safe_path);
        },
        [&] { opened->close(); });
    return true;
  };
  return removed_beneath_parent(root, arguments[0], kLabel, missing_ok, remove);
}

}  // namespace

constinit const Operation kWindowsRemoveRegularFile =
    Operation::of<kSignature, &remove_regular_file>();

}  // namespace client_manifest::windows
