// Goes through a directory tree depth first, from one open directory to the next, never through a
// link and never from the top again.
//
// The attack: somebody swaps an entry for a link after it was listed. The defence: every directory
// is opened beneath the one that was listed, without following a link. Its levels stand on the
// heap, so that a tree may be as deep as the process has descriptors for, two a level.
//
// Needs no interpreter lock.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "system/owned_descriptor.h"

namespace client_manifest::pinned_root {

// One entry of a directory, for as long as the walk stands at it.
struct Entry {
  int directory;          // the descriptor of the directory that holds it
  const char* name;       // as the system has it
  std::string_view text;  // the name, in text form
  std::string_view path;  // down from where the walk began, in text form
};

// What a walk does on its way.
class TreeVisitor {
 public:
  // The paths of entries begin with `prefix`, unless it is empty.
  explicit TreeVisitor(std::string prefix = {}) : path_(std::move(prefix)) {}
  TreeVisitor(const TreeVisitor&) = delete;
  TreeVisitor(TreeVisitor&&) = delete;
  TreeVisitor& operator=(const TreeVisitor&) = delete;
  TreeVisitor& operator=(TreeVisitor&&) = delete;
  virtual ~TreeVisitor() = default;

  // Passes an entry over before it is known what it is.
  [[nodiscard]] virtual bool skips(const Entry& /*entry*/) { return false; }
  // Whether to go into a directory, and how to open it.
  [[nodiscard]] virtual bool enters(const Entry& /*entry*/) { return true; }
  [[nodiscard]] virtual system::OwnedDescriptor open(const Entry& entry);
  // Handles anything that is not a directory; tells whether it has gone.
  [[nodiscard]] virtual bool visit(const Entry& entry) = 0;
  // Handles a directory that was gone into and is closed again; tells whether it has gone.
  [[nodiscard]] virtual bool leave(const Entry& /*entry*/) { return false; }
  // A directory has been listed to its end; `changed` tells whether an entry of its has gone.
  virtual void finish(int directory, bool changed) = 0;

 private:
  friend class TreeWalk;

  // Where the walk stands. It outlives the walk, for a refusal may speak of it.
  std::string path_;
};

// Walks all of `directory` in the order in which its entries are listed, and closes it on every
// exit. What it refuses speaks of the visitor, which must still be there when that is put in words.
void walk_tree(system::OwnedDescriptor directory, TreeVisitor& visitor);

}  // namespace client_manifest::pinned_root
