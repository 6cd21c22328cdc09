// Makes the system calls that the cleanups and the removal of a tree owe, and nothing else.
//
// It takes every regular file that it meets, holds no path and gives none back: the selectors, the
// paths and the sorted result are what the module adds. Every failure ends the program.

#include <dirent.h>
#include <unistd.h>

#include <memory>

#include "floor_support.h"

namespace {

using lower_bound::Checked;
using lower_bound::Clocks;
using lower_bound::Duplicate;
using lower_bound::Fail;
using lower_bound::kDirectoryFlags;
using lower_bound::kSourceFlags;
using lower_bound::Require;
using lower_bound::StatOf;

struct CloseListing {
  void operator()(DIR* listing) const { closedir(listing); }
};

// Calls `visit` with each entry, through a duplicate of the descriptor.
template <class Visit>
void List(int directory, Visit&& visit) {
  const std::unique_ptr<DIR, CloseListing> listing(fdopendir(Duplicate(directory)));
  Require(listing != nullptr, "fdopendir");
  rewinddir(listing.get());
  for (errno = 0; const dirent* entry = readdir(listing.get()); errno = 0) {
    const std::string_view name = entry->d_name;
    if (name == "." || name == "..") continue;
    Require(entry->d_type == DT_DIR || entry->d_type == DT_REG, "type");
    visit(entry->d_name, entry->d_type == DT_DIR);
  }
  Require(errno == 0, "readdir");
}

// The proof without a descriptor.
void RemoveStated(int directory, const char* name) {
  struct stat found;
  Checked(fstatat(directory, name, &found, AT_SYMLINK_NOFOLLOW), "fstatat");
  Require(S_ISREG(found.st_mode), "regular");
  Checked(unlinkat(directory, name, 0), "unlinkat");
}

// The proof by a descriptor that stays open through the unlink.
void RemoveHeld(int directory, const char* name) {
  const int file = Checked(openat(directory, name, kSourceFlags), "open file");
  Require(S_ISREG(StatOf(file).st_mode), "regular");
  Checked(unlinkat(directory, name, 0), "unlinkat");
  close(file);
}

// Calls `descend` with the opened child.
template <class Descend>
void Enter(int directory, const char* name, Descend&& descend) {
  const int child = Checked(openat(directory, name, kDirectoryFlags), "open directory");
  descend(child);
  close(child);
}

// `changed` is the whole call's: each directory that ends after the first removal is synced.
void CleanBySuffix(int directory, bool& changed) {
  List(directory, [&](const char* name, bool is_directory) {
    if (is_directory) {
      Enter(directory, name, [&](int child) { CleanBySuffix(child, changed); });
      return;
    }
    RemoveStated(directory, name);
    changed = true;
  });
  if (changed) Checked(fsync(directory), "fsync");
}

void CleanByPrefix(int directory) {
  bool changed = false;
  List(directory, [&](const char* name, bool is_directory) {
    if (is_directory) {
      Enter(directory, name, [](int child) { CleanByPrefix(child); });
      return;
    }
    RemoveHeld(directory, name);
    changed = true;
  });
  if (changed) Checked(fsync(directory), "fsync");
}

void Clear(int directory) {
  bool changed = false;
  List(directory, [&](const char* name, bool is_directory) {
    changed = true;
    if (is_directory) {
      Enter(directory, name, [](int child) { Clear(child); });
      Checked(unlinkat(directory, name, AT_REMOVEDIR), "rmdir");
      return;
    }
    RemoveHeld(directory, name);
  });
  if (changed) Checked(fsync(directory), "fsync");
}

// Takes `start`, a duplicate of the pinned descriptor, over.
void RemoveTree(int start, const char* name) {
  Enter(start, name, [](int tree) { Clear(tree); });
  Checked(unlinkat(start, name, AT_REMOVEDIR), "rmdir");
  Checked(fsync(start), "fsync");
}

}  // namespace

int main(int count, char** arguments) {
  const std::string_view operation = count > 1 ? arguments[1] : "";
  if (count != (operation == "remove" ? 4 : 3)) {
    std::fputs("floor_trees suffix|prefix ROOT | floor_trees remove ROOT NAME\n", stderr);
    return 2;
  }
  const int pinned = Checked(open(arguments[2], kDirectoryFlags), "open root");
  const Clocks clocks;
  const int start = Duplicate(pinned);
  bool changed = false;
  if (operation == "suffix") {
    CleanBySuffix(start, changed);
  } else if (operation == "prefix") {
    CleanByPrefix(start);
  } else if (operation == "remove") {
    RemoveTree(start, arguments[3]);
  } else {
    Fail("operation");
  }
  close(start);
  clocks.Print();
  close(pinned);
  return 0;
}
