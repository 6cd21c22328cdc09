// Removes a contained directory with all that it holds: each object by its handle, and each name
// proved empty afterwards. A reparse object stops the removal.
#include "host/handling.h"
#include "host/value.h"
#include "pinned_root/absence.h"
#include "windows/root_operations.h"
#include "windows/tree_walk.h"

namespace client_manifest::windows {
namespace {

using host::Arguments;
using host::Operation;
using host::Pass;
using host::Reference;
using pinned_root::removed_beneath_parent;
using pinned_root::unless_excused;

class Clearing final : public TreeVisitor {
 public:
  explicit Clearing(const Root& root) : root_(root) {}

  void visit(OwnedHandle& entry, PyObject* /*name*/, PyObject* path) override {
    root_.require_safe_regular(entry, path, kTargetLabel);
    remove(entry, path);
  }

  void leave(OwnedHandle& entry, PyObject* path) override { remove(entry, path); }

 private:
  static constexpr const char* kTargetLabel = "contained directory removal target";

  void remove(OwnedHandle& entry, PyObject* path) const {
    root_.boundary().delete_object(entry);
    entry.close();
    root_.assert_leaf_missing(path, kTargetLabel);
  }

  Root root_;
};

constexpr const char* kLabel = "contained directory removal";

constexpr host::Signature kSignature{
    .name = "remove_directory_tree",
    .kind = host::Kind::method,
    .parameters = {{{"relative_path"}, {"missing_ok", Pass::by_keyword}}},
};

Reference remove_directory_tree(PyObject* self, const Arguments& arguments) {
  PyObject* const missing_ok = arguments[1];
  const Root root(self);
  const auto remove = [&](const Parent& parent, PyObject* safe_path) {
    auto target = unless_excused(missing_ok, [&] {
      return root.boundary().open_directory_to_delete(parent.handle, parent.name.get());
    });
    if (!target) return false;
    host::guaranteed(
        [&] {
          root.require_safe_directory(*target, safe_path);
          root.assert_parent_path_matches(safe_path, parent, kLabel);
          Clearing clearing(root);
          walk_tree(root, target->get(), safe_path, clearing);
          root.assert_directory_path_matches(safe_path, target->get(), kLabel);
          root.boundary().delete_object(*target);
          target->close();
          root.assert_leaf_missing(safe_path, kLabel);
          root.assert_parent_path_matches(safe_path, parent, kLabel);
        },
        [&] { target->close(); });
    return true;
  };
  return removed_beneath_parent(root, arguments[0], kLabel, missing_ok, remove);
}

}  // namespace

constinit const Operation kWindowsRemoveDirectoryTree =
    Operation::of<kSignature, &remove_directory_tree>();

}  // namespace client_manifest::windows
