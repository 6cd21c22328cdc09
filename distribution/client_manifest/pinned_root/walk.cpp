// The walk from "/" and the walk to a parent are one descent in different words. The walk from an
// anchor stands apart: it makes nothing, it closes a directory that it cannot judge, which the
// descent leaves open, and it counts that failure as one of the open.
#include "pinned_root/walk.h"

#include "system/calls.h"

namespace client_manifest::pinned_root {
namespace {

using system::Failure;
using system::FileNames;
using system::OwnedDescriptor;

struct DescentWords {
  Clauses open;
  Wording not_a_directory;
};

system::FileStat stat_or_leave_open(OwnedDescriptor& next) {
  try {
    return system::stat_descriptor(next.get());
  } catch (const Failure&) {
    // A directory that cannot be judged stays open: callers count on exactly that.
    static_cast<void>(next.release());
    throw;
  }
}

OwnedDescriptor descend(OwnedDescriptor current, const FileNames& names, std::size_t count,
                        bool create, const DescentWords& words, const Subject& subject) {
  closed_on_failure(current, [&] {
    for (std::size_t i = 0; i < count; ++i) {
      const char* const name = names.at(i);
      if (create) make_durable_directory(current.get(), name);
      OwnedDescriptor next = open_directory(current.get(), name, words.open, subject);
      if (!stat_or_leave_open(next).is_directory()) {
        next.close();
        throw Refusal(words.not_a_directory, subject);
      }
      current.close();
      current = std::move(next);
    }
  });
  return current;
}

OwnedDescriptor open_following(const OwnedDescriptor& current, const char* name,
                               const Subject& subject) {
  const Clauses clauses{
      .missing = {PyExc_FileNotFoundError, " is missing: "},
      .other = {PyExc_ValueError, " has a symlink or non-directory segment: "},
  };
  OwnedDescriptor following;
  try {
    following = system::open_directory_at(current.get(), name);
    if (!system::stat_descriptor(following.get()).is_directory()) {
      throw Refusal({PyExc_ValueError, " must be a directory: "}, subject);
    }
    return following;
  } catch (...) {
    Refusal refusal = Refusal::in_flight();
    close_before(refusal, following);
    throw std::move(refusal).translated(clauses, subject);
  }
}

}  // namespace

OwnedDescriptor open_directory(int parent, const char* name, const Clauses& clauses,
                               const Subject& subject) {
  try {
    return system::open_directory_at(parent, name);
  } catch (Failure& failure) {
    throw Refusal(std::move(failure)).translated(clauses, subject);
  }
}

void make_durable_directory(int parent, const char* name) {
  if (!system::make_directory_at(parent, name)) return;
  try {
    system::synchronize(parent);
  } catch (const Failure& failure) {
    if (!failure.is_there_already()) throw;
  }
}

OwnedDescriptor walk_from_top(const FileNames& names, bool create) {
  const DescentWords words{
      .open = {.missing = {},
               .other = {PyExc_ValueError,
                         "pinned root is missing, has a symlinked ancestor, or is not a safe "
                         "directory"}},
      .not_a_directory = {PyExc_ValueError, "pinned root ancestor must be a directory"},
  };
  return descend(system::open_top_directory(), names, names.size(), create, words, {});
}

OwnedDescriptor walk_to_parent(int pinned, const FileNames& names, bool create,
                               const Subject& subject) {
  const DescentWords words{
      .open = {.missing = {PyExc_FileNotFoundError, " has a missing parent: "},
               .other = {PyExc_ValueError, " has a non-directory or symlink parent: "}},
      .not_a_directory = {PyExc_ValueError, " parent must be a directory: "},
  };
  return descend(system::duplicate(pinned), names, names.size() - 1, create, words, subject);
}

OwnedDescriptor walk_from_anchor(int anchor, const FileNames& names, const Subject& subject) {
  OwnedDescriptor current = system::duplicate(anchor);
  closed_on_failure(current, [&] {
    for (std::size_t i = 0; i < names.size(); ++i) {
      OwnedDescriptor following = open_following(current, names.at(i), subject);
      current.close();
      current = std::move(following);
    }
  });
  return current;
}

}  // namespace client_manifest::pinned_root
