// Proves a leaf: that a path still names the file that is open, or that it may be replaced.
#pragma once

#include "client_manifest.h"

namespace client_manifest::pinned_root {

// Requires that a file may take the place of `name`; an absent leaf always passes.
void assert_replaceable_leaf(int parent, PyObject* name, PyObject* safe_path,
                             PyObject* allow_replace);

extern const host::Operation kAssertReplaceableLeaf;
extern const host::Operation kAssertPathMatchesRegularFile;

}  // namespace client_manifest::pinned_root
