// Opens first and judges what has been opened; where nothing is to be opened, stats the entry
// itself and not what a link leads to.
#include "pinned_root/leaf.h"

#include <cerrno>

#include "pinned_root/open_file.h"
#include "system/calls.h"

namespace client_manifest::pinned_root {

using system::Failure;
using system::FileStat;
using system::OwnedDescriptor;

Clauses unreadable_leaf() {
  return {.missing = {}, .other = {PyExc_ValueError, " is a symlink or is not safely readable: "}};
}

OwnedDescriptor open_leaf_for_read(int parent, const char* name, const Subject& subject) {
  OwnedDescriptor file;
  try {
    file = system::open_for_read_at(parent, name);
    if (!system::stat_descriptor(file.get()).is_regular()) throw not_a_regular_file(subject);
    return file;
  } catch (...) {
    Refusal refusal = Refusal::in_flight();
    close_before(refusal, file);
    throw std::move(refusal).translated(unreadable_leaf(), subject);
  }
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

void require_replaceable_leaf(int parent, const char* name, PyObject* safe_path,
                              bool allow_replace) {
  FileStat stat;
  try {
    stat = system::stat_at(parent, name);
  } catch (const Failure& failure) {
    if (failure.is(ENOENT)) return;
    throw;
  }
  if (!stat.is_regular()) {
    throw Refusal(
        {PyExc_ValueError, "contained file destination is a symlink or non-regular file: "},
        {.label = nullptr, .path = safe_path});
  }
  if (!allow_replace) {
    throw Refusal({PyExc_FileExistsError, "contained file already exists: "},
                  {.label = nullptr, .path = safe_path});
  }
}

}  // namespace client_manifest::pinned_root
