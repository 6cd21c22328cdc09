// The two cleanup walks by handle: they select as they do elsewhere, and prove each directory
// against the root before it is read and afterwards, and each removal by what its name holds then.
#include <algorithm>

#include "documents/relative_path.h"
#include "host/handling.h"
#include "host/message.h"
#include "host/value.h"
#include "windows/root_operations.h"
#include "windows/tree_walk.h"

namespace client_manifest::windows {
namespace {

using documents::bound::validate_manifest_relative_path;
using host::Arguments;
using host::invoke;
using host::Kind;
using host::Operation;
using host::Pass;
using host::Reference;
using host::take;

bool starts_with(PyObject* text, PyObject* beginning) {
  return host::check(
             static_cast<int>(PyUnicode_Tailmatch(text, beginning, 0, PY_SSIZE_T_MAX, -1))) != 0;
}

bool ends_with(PyObject* text, PyObject* ending) {
  return host::check(static_cast<int>(PyUnicode_Tailmatch(text, ending, 0, PY_SSIZE_T_MAX, 1))) !=
         0;
}

class Cleanup : public TreeVisitor {
 public:
  Cleanup(const Root& root, Reference preserved)
      : root_(root), preserved_(std::move(preserved)), removed_(take(PyList_New(0))) {}

  void prove(PyObject* directory, PyObject* path) override {
    root_.assert_directory_path_matches(path, directory, "contained cleanup directory");
  }

  void visit(OwnedHandle& entry, PyObject* name, PyObject* path) override {
    constexpr const char* label = "contained cleanup target";
    if (!selects(name, path)) return;
    root_.require_safe_regular(entry, path, label);
    root_.boundary().delete_object(entry);
    entry.close();
    root_.assert_leaf_missing(path, label);
    host::check(PyList_Append(removed_.get(), path));
  }

  // The paths that are gone, sorted.
  [[nodiscard]] Reference removed() const {
    return take(PyList_AsTuple(host::sorted(removed_.get()).get()));
  }

 protected:
  [[nodiscard]] bool preserves(PyObject* path) const {
    return host::contains(preserved_.get(), path);
  }

 private:
  [[nodiscard]] virtual bool selects(PyObject* name, PyObject* path) const = 0;

  Root root_;
  Reference preserved_;
  Reference removed_;
};

class SuffixCleanup final : public Cleanup {
 public:
  SuffixCleanup(const Root& root, PyObject* suffix, Reference preserved)
      : Cleanup(root, std::move(preserved)), suffix_(suffix) {}

 private:
  [[nodiscard]] bool selects(PyObject* name, PyObject* path) const override {
    return ends_with(name, suffix_) && !preserves(path);
  }

  PyObject* suffix_;
};

class PrefixCleanup final : public Cleanup {
 public:
  // Each of the prefixes ends in "/".
  PrefixCleanup(const Root& root, std::vector<Reference> prefixes, Reference preserved)
      : Cleanup(root, std::move(preserved)), prefixes_(std::move(prefixes)) {}

  bool skips(PyObject* name) override { return starts_with(name, host::text(".").get()); }

  // A directory on the way to a prefix, or at or under it.
  bool enters(PyObject* path) override {
    const Reference directory_prefix = host::text(path, "/");
    return std::ranges::any_of(prefixes_, [&](const Reference& prefix) {
      return starts_with(prefix.get(), directory_prefix.get()) ||
             starts_with(directory_prefix.get(), prefix.get());
    });
  }

 private:
  [[nodiscard]] bool selects(PyObject* /*name*/, PyObject* path) const override {
    return !preserves(path) && std::ranges::any_of(prefixes_, [&](const Reference& prefix) {
      return starts_with(path, prefix.get());
    });
  }

  std::vector<Reference> prefixes_;
};

Reference preserved_paths(PyObject* preserve_relative_paths) {
  Reference preserved = take(PySet_New(nullptr));
  host::for_each(preserve_relative_paths, [&](PyObject* path) {
    host::check(PySet_Add(preserved.get(), validate_manifest_relative_path(path).get()));
  });
  return preserved;
}

// Walks the whole root; gives the paths that were removed.
Reference clean(const Root& root, Cleanup&& cleanup) {
  OwnedHandle directory = root.boundary().duplicate(root.require_descriptor().get());
  host::guaranteed([&] { walk_tree(root, directory.get(), host::text("").get(), cleanup); },
                   [&] { directory.close(); });
  return cleanup.removed();
}

constexpr host::Signature kSuffixSignature{
    .name = "remove_regular_files_with_suffix",
    .kind = Kind::method,
    .parameters = {{{"suffix"}, {"preserve_relative_paths", Pass::by_keyword}}},
};

Reference remove_regular_files_with_suffix(PyObject* self, const Arguments& arguments) {
  PyObject* const suffix = arguments[0];
  if (PyUnicode_Check(suffix) == 0 || !host::is_true(suffix) ||
      host::contains(suffix, host::text("/").get())) {
    host::raise(PyExc_ValueError, "contained cleanup suffix must be a non-empty filename suffix");
  }
  const Root root(self);
  return clean(root, SuffixCleanup(root, suffix, preserved_paths(arguments[1])));
}

constexpr host::Signature kPrefixSignature{
    .name = "remove_regular_files_in_prefixes",
    .kind = Kind::method,
    .parameters = {{{"prefixes"}, {"preserve_relative_paths", Pass::by_keyword}}},
};

Reference safe_prefix(PyObject* prefix) {
  const Reference stripped = invoke(prefix, "rstrip", {host::text("/").get()});
  return host::text(validate_manifest_relative_path(stripped.get()), "/");
}

Reference remove_regular_files_in_prefixes(PyObject* self, const Arguments& arguments) {
  std::vector<Reference> safe_prefixes;
  host::for_each(arguments[0],
                 [&](PyObject* prefix) { safe_prefixes.push_back(safe_prefix(prefix)); });
  if (safe_prefixes.empty()) return take(PyTuple_New(0));
  const Root root(self);
  return clean(root, PrefixCleanup(root, std::move(safe_prefixes), preserved_paths(arguments[1])));
}

}  // namespace

constinit const Operation kWindowsRemoveRegularFilesWithSuffix =
    Operation::of<kSuffixSignature, &remove_regular_files_with_suffix>();
constinit const Operation kWindowsRemoveRegularFilesInPrefixes =
    Operation::of<kPrefixSignature, &remove_regular_files_in_prefixes>();

}  // namespace client_manifest::windows
