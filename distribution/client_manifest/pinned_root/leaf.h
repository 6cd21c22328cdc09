// Looks at a leaf beneath an opened parent, never through a link.
//
// These functions need no interpreter lock; they throw a Refusal or a system::Failure.
#pragma once

#include "pinned_root/refusal.h"
#include "system/file_stat.h"
#include "system/owned_descriptor.h"

namespace client_manifest::pinned_root {

// Opens a leaf for reading and requires it to be a regular file.
[[nodiscard]] system::OwnedDescriptor open_leaf_for_read(int parent, const char* name,
                                                         const Subject& subject);
// What becomes of an OSError in that operation.
[[nodiscard]] Clauses unreadable_leaf();

// Looks at the leaf of a file that is open: one that has gone, or is no regular file any more, was
// changed.
[[nodiscard]] system::FileStat look_at_open_leaf(int parent, const char* name,
                                                 const Subject& subject);
[[nodiscard]] Refusal path_identity_changed(const Subject& subject);

// Requires a leaf that a new file may take the place of; an absent one always is.
void require_replaceable_leaf(int parent, const char* name, PyObject* safe_path,
                              bool allow_replace);

}  // namespace client_manifest::pinned_root
