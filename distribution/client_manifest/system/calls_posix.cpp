// The system calls on POSIX, through libc's own functions.
#ifndef _WIN32

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "system/calls.h"
#include "system/phase.h"

namespace client_manifest::system {
namespace {

constexpr int kDirectoryFlags = O_RDONLY | O_CLOEXEC | O_DIRECTORY | O_NOFOLLOW;
constexpr int kReadFlags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW;
constexpr mode_t kDirectoryMode = 0755;

// Throws what the last call left in errno unless `result` says that it succeeded.
template <class Result>
Result succeeded(Result result) {
  if (result < 0) throw Failure(errno);
  return result;
}
template <class Result>
Result succeeded(Result result, const char* name) {
  if (result < 0) throw Failure(errno, name);
  return result;
}

// Makes `call` until a signal does not interrupt it. What a signal handler raises ends it, in the
// shape of a failed call, so that it meets the same clauses as one.
template <class Call>
auto uninterrupted(Call&& call) -> decltype(call()) {
  for (;;) {
    const auto result = call();
    if (result >= 0 || errno != EINTR) return result;
    try {
      host::run_signal_handlers();
    } catch (host::Error& raised) {
      throw Failure(std::move(raised));
    }
  }
}

OwnedDescriptor open_at(int directory, const char* name, int flags) {
  return phase([&] {
    return OwnedDescriptor(
        succeeded(uninterrupted([&] { return ::openat(directory, name, flags); }), name));
  });
}

FileKind kind_of(mode_t mode) {
  if (S_ISREG(mode)) return FileKind::regular;
  return S_ISDIR(mode) ? FileKind::directory : FileKind::other;
}

Timestamp timestamp(const timespec& time) { return {time.tv_sec, time.tv_nsec}; }

FileStat file_stat(const struct stat& found) {
  return FileStat{
      .mode = found.st_mode,
      .inode = found.st_ino,
      .device = found.st_dev,
      .links = found.st_nlink,
      .user = found.st_uid,
      .group = found.st_gid,
      .size = found.st_size,
#ifdef __APPLE__
      .accessed = timestamp(found.st_atimespec),
      .modified = timestamp(found.st_mtimespec),
      .changed = timestamp(found.st_ctimespec),
#else
      .accessed = timestamp(found.st_atim),
      .modified = timestamp(found.st_mtim),
      .changed = timestamp(found.st_ctim),
#endif
      .block_size = found.st_blksize,
      .blocks = found.st_blocks,
      .special_device = found.st_rdev,
      .kind = kind_of(found.st_mode),
  };
}

}  // namespace

OwnedDescriptor open_top_directory() {
  return phase([] {
    return OwnedDescriptor(
        succeeded(uninterrupted([] { return ::open("/", kDirectoryFlags); }), "/"));
  });
}

OwnedDescriptor open_directory_at(int directory, const char* name) {
  return open_at(directory, name, kDirectoryFlags);
}

OwnedDescriptor open_for_read_at(int directory, const char* name) {
  return open_at(directory, name, kReadFlags);
}

OwnedDescriptor duplicate(int descriptor) {
  return phase([&] { return OwnedDescriptor(succeeded(::fcntl(descriptor, F_DUPFD_CLOEXEC, 0))); });
}

void close(int descriptor) {
  phase([&] { succeeded(::close(descriptor)); });
}

void OwnedDescriptor::close() {
  if (*this) system::close(release());
}

OwnedDescriptor::~OwnedDescriptor() {
  // Straight to the system: this can run where the host is not to be touched any more.
  if (*this) static_cast<void>(::close(release()));
}

FileStat stat_descriptor(int descriptor) {
  return phase([&] {
    struct stat found {};
    succeeded(uninterrupted([&] { return ::fstat(descriptor, &found); }));
    return file_stat(found);
  });
}

FileStat stat_at(int directory, const char* name) {
  return phase([&] {
    struct stat found {};
    succeeded(::fstatat(directory, name, &found, AT_SYMLINK_NOFOLLOW), name);
    return file_stat(found);
  });
}

void make_directory_at(int directory, const char* name) {
  phase([&] { succeeded(::mkdirat(directory, name, kDirectoryMode), name); });
}

void synchronize(int descriptor) {
  phase([&] { succeeded(uninterrupted([&] { return ::fsync(descriptor); })); });
}

void rewind(int descriptor) {
  phase([&] { succeeded(::lseek(descriptor, 0, SEEK_SET)); });
}

std::size_t read_full(int descriptor, std::span<std::byte> buffer) {
  // The kernel moves no more than this in one call.
  constexpr std::size_t most = 0x7ffff000;
  return phase([&] {
    std::size_t filled = 0;
    while (filled < buffer.size()) {
      const std::size_t wanted = std::min(buffer.size() - filled, most);
      const auto count = succeeded(
          uninterrupted([&] { return ::read(descriptor, buffer.data() + filled, wanted); }));
      if (count == 0) break;
      filled += static_cast<std::size_t>(count);
    }
    return filled;
  });
}

}  // namespace client_manifest::system

#endif  // _WIN32
