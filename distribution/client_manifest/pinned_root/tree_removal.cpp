// The tree is emptied depth first. What is neither a real directory nor a regular file, a link
// above all, is never removed: it stops the removal, and what was cleared before stays cleared.
#include "pinned_root/tree_removal.h"

#include "host/text_form.h"
#include "pinned_root/absence.h"
#include "pinned_root/instance.h"
#include "pinned_root/leaf.h"
#include "pinned_root/tree_walk.h"
#include "pinned_root/walk.h"
#include "system/calls.h"
#include "system/file_names.h"

namespace client_manifest::pinned_root {
namespace {

using host::Arguments;
using host::Operation;
using host::Pass;
using host::Reference;
using system::OwnedDescriptor;

class Clearing final : public TreeVisitor {
 public:
  using TreeVisitor::TreeVisitor;

  OwnedDescriptor open(const Entry& entry) override {
    const Clauses unsafe = any_failure(
        {PyExc_ValueError, "contained directory removal encountered an unsafe directory: "});
    return open_directory(entry.directory, entry.name, unsafe, {.entry = entry.path});
  }

  bool visit(const Entry& entry) override {
    const LeafWords words{
        .not_regular = {PyExc_ValueError,
                        "contained directory removal encountered a non-regular file: "},
        .failed =
            any_failure({PyExc_ValueError,
                         "contained directory removal encountered a symlink or unsafe file: "})};
    unlink_regular_leaf(entry.directory, entry.name, words, {.entry = entry.path});
    return true;
  }

  bool leave(const Entry& entry) override {
    system::remove_directory_at(entry.directory, entry.name);
    return true;
  }

  void finish(int directory, bool changed) override {
    if (changed) system::synchronize(directory);
  }
};

constexpr host::Signature kSignature{
    .name = "remove_directory_tree",
    .kind = host::Kind::method,
    .parameters = {{{"relative_path"}, {"missing_ok", Pass::by_keyword}}},
};

Reference remove_directory_tree(PyObject* self, const Arguments& arguments) {
  PyObject* const missing_ok = arguments[1];
  const Clauses unsafe{
      .missing = {},
      .other = {PyExc_ValueError, "contained directory removal target is a symlink or unsafe: "}};
  const auto remove = [&](const Parent& parent, PyObject* safe_path) {
    const int directory = parent.descriptor.get();
    const auto name = system::FileNames::one(parent.name.get());
    auto target = unless_excused(missing_ok, [&] {
      return in_words(
          [&] { return open_directory(directory, name.last(), unsafe, {.path = safe_path}); });
    });
    if (!target) return false;
    Clearing clearing(host::text_form(safe_path));
    in_words([&] {
      // Closes the directory before it is removed.
      walk_tree(std::move(*target), clearing);
      system::remove_directory_at(directory, name.last());
      system::synchronize(directory);
    });
    return true;
  };
  return removed_beneath_parent(through(self), arguments[0], "contained directory removal",
                                missing_ok, remove);
}

}  // namespace

constinit const Operation kRemoveDirectoryTree =
    Operation::of<kSignature, &remove_directory_tree>();

}  // namespace client_manifest::pinned_root
