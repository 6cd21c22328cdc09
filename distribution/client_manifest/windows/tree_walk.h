// Goes through a directory tree depth first, by handles: every entry is opened and judged, and a
// reparse object is never gone through. The levels stand on the heap, whatever the depth.
#pragma once

#include <vector>

#include "windows/root.h"

namespace client_manifest::windows {

// What a walk does on its way. Paths are host texts from the pinned root down.
class TreeVisitor {
 public:
  TreeVisitor() = default;
  TreeVisitor(const TreeVisitor&) = delete;
  TreeVisitor(TreeVisitor&&) = delete;
  TreeVisitor& operator=(const TreeVisitor&) = delete;
  TreeVisitor& operator=(TreeVisitor&&) = delete;
  virtual ~TreeVisitor() = default;

  // Before a directory is listed, and after the last of its entries.
  virtual void prove(PyObject* /*directory*/, PyObject* /*path*/) {}
  // Passes a name over before it is opened.
  [[nodiscard]] virtual bool skips(PyObject* /*name*/) { return false; }
  // Whether to go into a directory.
  [[nodiscard]] virtual bool enters(PyObject* /*path*/) { return true; }
  // Handles anything that is not a directory.
  virtual void visit(OwnedHandle& entry, PyObject* name, PyObject* path) = 0;
  // Handles a directory that was gone through.
  virtual void leave(OwnedHandle& /*entry*/, PyObject* /*path*/) {}
};

// Walks `directory`, which stays the caller's; `prefix` is its path, and may be empty.
void walk_tree(const Root& root, PyObject* directory, PyObject* prefix, TreeVisitor& visitor);

}  // namespace client_manifest::windows
