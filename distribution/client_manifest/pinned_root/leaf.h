// Looks at a leaf beneath an opened parent, never through a link.
//
// These functions need no interpreter lock; they throw a Refusal or a system::Failure.
#pragma once

#include "pinned_root/refusal.h"
#include "system/calls.h"
#include "system/file_stat.h"
#include "system/owned_descriptor.h"

namespace client_manifest::pinned_root {

// The words for a leaf that is opened and then judged.
struct LeafWords {
  Wording not_regular;
  Clauses failed;  // what becomes of an OSError on the way
};

// The leaf that `open` opens, which must be a regular file.
template <class Open>
[[nodiscard]] system::OwnedDescriptor open_regular_leaf(Open&& open, const LeafWords& words,
                                                        const Subject& subject) {
  system::OwnedDescriptor file;
  try {
    file = open();
    if (!system::stat_descriptor(file.get()).is_regular()) {
      throw Refusal(words.not_regular, subject);
    }
    return file;
  } catch (...) {
    Refusal refusal = Refusal::in_flight();
    close_before(refusal, file);
    throw std::move(refusal).translated(words.failed, subject);
  }
}

// Opens a leaf for reading.
[[nodiscard]] LeafWords words_for_reading();
[[nodiscard]] system::OwnedDescriptor open_leaf_for_read(int parent, const char* name,
                                                         const Subject& subject);

// Unlinks a leaf that has proved itself regular and is held open meanwhile. It does not wait at a
// FIFO.
void unlink_regular_leaf(int parent, const char* name, const LeafWords& words,
                         const Subject& subject);

// Looks at the leaf of a file that is open: one that has gone, or is no regular file any more, was
// changed.
[[nodiscard]] system::FileStat look_at_open_leaf(int parent, const char* name,
                                                 const Subject& subject);
[[nodiscard]] Refusal path_identity_changed(const Subject& subject);

}  // namespace client_manifest::pinned_root
