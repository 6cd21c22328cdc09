// The two cleanup walks look alike and are not: what they enter, in which order they test, what
// proves a target, what becomes of a failure and when a directory is flushed all differ. Each
// stands here as a visitor of its own; what they share is what surrounds them.
#include "pinned_root/cleanup.h"

#include <algorithm>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "documents/relative_path.h"
#include "host/message.h"
#include "host/text_form.h"
#include "host/value.h"
#include "pinned_root/instance.h"
#include "pinned_root/leaf.h"
#include "pinned_root/tree_walk.h"
#include "system/calls.h"

namespace client_manifest::pinned_root {
namespace {

using host::Arguments;
using host::Kind;
using host::Operation;
using host::Pass;
using host::raise;
using host::Reference;
using host::take;

// Contained paths in text form.
using Paths = std::set<std::string, std::less<>>;

class Cleanup : public TreeVisitor {
 public:
  // The paths that are gone, in the order in which they went.
  [[nodiscard]] std::vector<std::string> removed() && noexcept { return std::move(removed_); }

 protected:
  explicit Cleanup(Paths preserved) : preserved_(std::move(preserved)) {}

  [[nodiscard]] bool has_removed_any() const noexcept { return !removed_.empty(); }
  [[nodiscard]] bool preserves(const Entry& entry) const { return preserved_.contains(entry.path); }
  bool has_removed(const Entry& entry) {
    removed_.emplace_back(entry.path);
    return true;
  }

  static Wording not_regular_target() {
    return {PyExc_ValueError, "contained cleanup target is a symlink or non-regular file: "};
  }

 private:
  Paths preserved_;
  std::vector<std::string> removed_;
};

// Enters every directory. It holds no target open, and translates no failure.
class SuffixCleanup final : public Cleanup {
 public:
  SuffixCleanup(std::string suffix, Paths preserved)
      : Cleanup(std::move(preserved)), suffix_(std::move(suffix)) {}

  bool visit(const Entry& entry) override {
    if (!entry.text.ends_with(suffix_) || preserves(entry)) return false;
    if (!system::stat_at(entry.directory, entry.name).is_regular()) {
      throw Refusal(not_regular_target(), {.entry = entry.path});
    }
    system::unlink_at(entry.directory, entry.name);
    return has_removed(entry);
  }

  // Once the call has removed anything, every directory that ends is flushed, whether or not it
  // was that directory's.
  void finish(int directory, bool /*changed*/) override {
    if (has_removed_any()) system::synchronize(directory);
  }

 private:
  std::string suffix_;
};

// Enters what lies on the way to a prefix or under it, and nothing hidden. It holds a target open
// while it is unlinked, and translates a failure to open or unlink it.
class PrefixCleanup final : public Cleanup {
 public:
  // Each of the prefixes ends in "/".
  PrefixCleanup(std::vector<std::string> prefixes, Paths preserved)
      : Cleanup(std::move(preserved)), prefixes_(std::move(prefixes)) {}

  bool skips(const Entry& entry) override { return entry.text.starts_with('.'); }

  bool enters(const Entry& entry) override {
    const std::string directory_prefix = std::string(entry.path) + '/';
    return std::ranges::any_of(prefixes_, [&](const std::string& prefix) {
      return prefix.starts_with(directory_prefix) || directory_prefix.starts_with(prefix);
    });
  }

  bool visit(const Entry& entry) override {
    if (preserves(entry) || !selects(entry)) return false;
    const LeafWords words{
        .not_regular = not_regular_target(),
        .failed = any_failure(
            {PyExc_ValueError, "contained cleanup target is a symlink or unsafe file: "})};
    unlink_regular_leaf(entry.directory, entry.name, words, {.entry = entry.path});
    return has_removed(entry);
  }

  void finish(int directory, bool changed) override {
    if (changed) system::synchronize(directory);
  }

 private:
  [[nodiscard]] bool selects(const Entry& entry) const {
    return std::ranges::any_of(
        prefixes_, [&](const std::string& prefix) { return entry.path.starts_with(prefix); });
  }

  std::vector<std::string> prefixes_;
};

Paths preserved_paths(PyObject* preserve_relative_paths) {
  Paths preserved;
  host::for_each(preserve_relative_paths, [&](PyObject* path) {
    preserved.insert(
        host::text_form(documents::bound::validate_manifest_relative_path(path).get()));
  });
  return preserved;
}

// Walks the whole root; gives the paths that were removed, sorted.
Reference clean(PyObject* self, Cleanup&& cleanup) {
  const int pinned = through(self).require_descriptor();
  in_words([&] { walk_tree(system::duplicate(pinned), cleanup); });
  return host::sorted_texts(std::move(cleanup).removed());
}

constexpr host::Signature kSuffixSignature{
    .name = "remove_regular_files_with_suffix",
    .kind = Kind::method,
    .parameters = {{{"suffix"}, {"preserve_relative_paths", Pass::by_keyword}}},
};

Reference remove_regular_files_with_suffix(PyObject* self, const Arguments& arguments) {
  PyObject* const suffix = arguments[0];
  const bool is_text = PyUnicode_Check(suffix) != 0;
  const std::string ending = is_text ? host::text_form(suffix) : std::string();
  if (ending.empty() || ending.find('/') != std::string::npos) {
    raise(PyExc_ValueError, "contained cleanup suffix must be a non-empty filename suffix");
  }
  return clean(self, SuffixCleanup(ending, preserved_paths(arguments[1])));
}

constexpr host::Signature kPrefixSignature{
    .name = "remove_regular_files_in_prefixes",
    .kind = Kind::method,
    .parameters = {{{"prefixes"}, {"preserve_relative_paths", Pass::by_keyword}}},
};

std::string safe_prefix(PyObject* prefix) {
  const Reference slash = take(PyUnicode_FromString("/"));
  const Reference stripped = host::call_method(prefix, names().rstrip, slash);
  return host::text_form(documents::bound::validate_manifest_relative_path(stripped.get()).get()) +
         '/';
}

Reference remove_regular_files_in_prefixes(PyObject* self, const Arguments& arguments) {
  std::vector<std::string> safe_prefixes;
  host::for_each(arguments[0],
                 [&](PyObject* prefix) { safe_prefixes.push_back(safe_prefix(prefix)); });
  if (safe_prefixes.empty()) return take(PyTuple_New(0));
  return clean(self, PrefixCleanup(std::move(safe_prefixes), preserved_paths(arguments[1])));
}

}  // namespace

constinit const Operation kRemoveRegularFilesWithSuffix =
    Operation::of<kSuffixSignature, &remove_regular_files_with_suffix>();
constinit const Operation kRemoveRegularFilesInPrefixes =
    Operation::of<kPrefixSignature, &remove_regular_files_in_prefixes>();

}  // namespace client_manifest::pinned_root
