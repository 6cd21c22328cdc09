// Walks of directories, one segment at a time and never through a link.
//
// The attack: somebody puts a link, or another directory, where a path leads. The defence: each
// segment is opened relative to the descriptor of the one above it, without following a link, and
// what has been opened is judged by its descriptor, never by its name. A walk holds two
// descriptors at the most and keeps nothing for the next one.
//
// These functions need no interpreter lock. They throw a Refusal, a system::Failure, or the
// host's refusal of a name that it cannot encode.
#pragma once

#include "pinned_root/refusal.h"
#include "system/file_names.h"
#include "system/owned_descriptor.h"

namespace client_manifest::pinned_root {

// Opens one directory, without following a link; the clauses say what becomes of a failure.
[[nodiscard]] system::OwnedDescriptor open_directory(int parent, const char* name,
                                                     const Clauses& clauses,
                                                     const Subject& subject);

// Makes a directory, and makes it durable in its parent before anything is put into it. One that is
// there already was made durable by whoever made it.
void make_durable_directory(int parent, const char* name);

// From "/" down all of `names`; with `create`, missing directories are made and made durable.
[[nodiscard]] system::OwnedDescriptor walk_from_top(const system::FileNames& names, bool create);

// From `pinned` down all of `names` but the last, which is the leaf and is not touched.
[[nodiscard]] system::OwnedDescriptor walk_to_parent(int pinned, const system::FileNames& names,
                                                     bool create, const Subject& subject);

// From `anchor` down all of `names`.
[[nodiscard]] system::OwnedDescriptor walk_from_anchor(int anchor, const system::FileNames& names,
                                                       const Subject& subject);

}  // namespace client_manifest::pinned_root
