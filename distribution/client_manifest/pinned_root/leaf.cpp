// Opens first and judges what has been opened; where nothing is to be opened, stats the entry
// itself and not what a link leads to.
#include "pinned_root/leaf.h"

#include "system/calls.h"

namespace client_manifest::pinned_root {

using system::Failure;
using system::FileStat;
using system::OwnedDescriptor;

LeafWords words_for_reading() {
  return {.not_regular = {PyExc_ValueError, " must be a regular file: "},
          .failed = {.missing = {},
                     .other = {PyExc_ValueError, " is a symlink or is not safely readable: "}}};
}

OwnedDescriptor open_leaf_for_read(int parent, const char* name, const Subject& subject) {
  return open_regular_leaf([&] { return system::open_for_read_at(parent, name); },
                           words_for_reading(), subject);
}

void unlink_regular_leaf(int parent, const char* name, const LeafWords& words,
                         const Subject& subject) {
  OwnedDescriptor file;
  closed_in_any_case(file, [&] {
    try {
      file = system::open_source_at(parent, name);
      if (!system::stat_descriptor(file.get()).is_regular()) {
        throw Refusal(words.not_regular, subject);
      }
      system::unlink_at(parent, name);
    } catch (Failure& failure) {
      throw Refusal(std::move(failure)).translated(words.failed, subject);
    }
  });
}

FileStat look_at_open_leaf(int parent, const char* name, const Subject& subject) {
  const Clauses gone{.missing = {PyExc_ValueError, " path changed while open: "}, .other = {}};
  FileStat stat;
  try {
    stat = system::stat_at(parent, name);
  } catch (Failure& failure) {
    throw Refusal(std::move(failure)).translated(gone, subject);
  }
  if (!stat.is_regular()) {
    throw Refusal({PyExc_ValueError, " path became a symlink or non-regular file: "}, subject);
  }
  return stat;
}

Refusal path_identity_changed(const Subject& subject) {
  return {{PyExc_ValueError, " path identity changed while open: "}, subject};
}

}  // namespace client_manifest::pinned_root
