// Makes the system calls that an atomic write owes, in their order, and nothing else.
//
// It writes 4 KiB at each of the paths in turn, which come one a line. They are split before the
// clock starts; the staged file's name, with its random token, is made anew for each write. Every
// failure ends the program.

#include <pthread.h>
#include <sys/random.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <iostream>
#include <string>
#include <vector>

#include "floor_support.h"

namespace {

using lower_bound::Checked;
using lower_bound::Clocks;
using lower_bound::Duplicate;
using lower_bound::kDirectoryFlags;
using lower_bound::kSourceFlags;
using lower_bound::Require;
using lower_bound::SameObject;
using lower_bound::StatOf;

constexpr int kStagingFlags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW;

std::array<char, 4096> payload;

struct Path {
  std::vector<std::string> directories;
  std::string leaf;
};

Path Split(const std::string& text) {
  Path path;
  std::size_t begin = 0;
  for (std::size_t end = text.find('/'); end != text.npos; end = text.find('/', begin)) {
    path.directories.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  path.leaf = text.substr(begin);
  return path;
}

// The parent's descriptor, for the caller to close. The directories are there already.
int OpenParent(int pinned, const Path& path) {
  int current = Duplicate(pinned);
  for (const std::string& directory : path.directories) {
    Require(mkdirat(current, directory.c_str(), 0755) < 0 && errno == EEXIST, "mkdirat");
    const int following =
        Checked(openat(current, directory.c_str(), kDirectoryFlags), "open directory");
    Require(S_ISDIR(StatOf(following).st_mode), "directory");
    close(current);
    current = following;
  }
  return current;
}

std::string TemporaryName(const std::string& leaf) {
  std::uint64_t token = 0;
  Require(getrandom(&token, sizeof token, 0) == sizeof token, "getrandom");
  std::array<char, 64> tail;
  const int length = std::snprintf(tail.data(), tail.size(), ".%d.%lu.%016llx.tmp", getpid(),
                                   pthread_self(), static_cast<unsigned long long>(token));
  std::string name = ".";
  name.append(leaf).append(tail.data(), static_cast<std::size_t>(length));
  return name;
}

void RequireReplaceable(int parent, const char* leaf, bool allow_replace) {
  struct stat found;
  if (fstatat(parent, leaf, &found, AT_SYMLINK_NOFOLLOW) < 0) {
    Require(errno == ENOENT, "fstatat");
    return;
  }
  Require(S_ISREG(found.st_mode) && allow_replace, "replaceable");
}

struct stat Stage(int parent, const char* name) {
  const int staged = Checked(openat(parent, name, kStagingFlags, 0600), "open staged");
  Require(write(staged, payload.data(), payload.size()) == ssize_t{payload.size()}, "write");
  Checked(fsync(staged), "fsync");
  const struct stat found = StatOf(staged);
  close(staged);
  return found;
}

void Write(int pinned, const Path& path, bool allow_replace) {
  const int parent = OpenParent(pinned, path);
  const char* const leaf = path.leaf.c_str();
  const std::string temporary = TemporaryName(path.leaf);
  RequireReplaceable(parent, leaf, allow_replace);
  const struct stat staged = Stage(parent, temporary.c_str());
  const int source = Checked(openat(parent, temporary.c_str(), kSourceFlags), "open source");
  const struct stat held = StatOf(source);
  Require(S_ISREG(held.st_mode) && SameObject(held, staged), "staged");
  RequireReplaceable(parent, leaf, allow_replace);
  Checked(renameat(parent, temporary.c_str(), parent, leaf), "renameat");
  struct stat published;
  Checked(fstatat(parent, leaf, &published, AT_SYMLINK_NOFOLLOW), "fstatat");
  Require(S_ISREG(published.st_mode) && SameObject(published, held), "published");
  Checked(fsync(parent), "fsync");
  close(source);
  Require(unlinkat(parent, temporary.c_str(), 0) < 0 && errno == ENOENT, "unlinkat");
  close(parent);
}

std::vector<Path> ReadPaths() {
  std::vector<Path> paths;
  for (std::string line; std::getline(std::cin, line);) paths.push_back(Split(line));
  Require(!paths.empty(), "paths");
  return paths;
}

}  // namespace

int main(int count, char** arguments) {
  const std::string_view kind = count > 1 ? arguments[1] : "";
  if (count != 4 || (kind != "replace" && kind != "create")) {
    std::fputs("floor_writes replace|create ROOT COUNT < PATHS\n", stderr);
    return 2;
  }
  payload.fill('x');
  const std::vector<Path> paths = ReadPaths();
  const auto writes = static_cast<std::size_t>(std::atol(arguments[3]));
  const int pinned = Checked(open(arguments[2], kDirectoryFlags), "open root");
  const Clocks clocks;
  for (std::size_t i = 0; i < writes; ++i) {
    Write(pinned, paths[i % paths.size()], kind == "replace");
  }
  clocks.Print();
  close(pinned);
  return 0;
}
