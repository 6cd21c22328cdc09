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
constexpr int kSourceFlags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
constexpr int kUpdateFlags = O_RDWR | O_CLOEXEC | O_NOFOLLOW;
constexpr int kStagingFlags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW;
constexpr mode_t kFileMode = 0600;
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
void succeeded(int result, const char* name, const char* new_name) {
  if (result < 0) throw Failure(errno, name, new_name);
}

// Whether a call failed in the one way that is none here. It costs no exception, which would be
// dear where that way is the usual one.
bool failed_with(int number, int result) { return result < 0 && errno == number; }

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

// The mode counts only where the flags say that a file is to be made.
OwnedDescriptor open_at(int directory, const char* name, int flags, mode_t mode = 0) {
  return phase([&] {
    return OwnedDescriptor(
        succeeded(uninterrupted([&] { return ::openat(directory, name, flags, mode); }), name));
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

OwnedDescriptor open_source_at(int directory, const char* name) {
  return open_at(directory, name, kSourceFlags);
}

OwnedDescriptor open_for_update_at(int directory, const char* name, bool create) {
  return open_at(directory, name, create ? kUpdateFlags | O_CREAT : kUpdateFlags, kFileMode);
}

OwnedDescriptor create_for_write_at(int directory, const char* name) {
  return open_at(directory, name, kStagingFlags, kFileMode);
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

std::optional<FileStat> stat_if_present_at(int directory, const char* name) {
  return phase([&]() -> std::optional<FileStat> {
    struct stat found {};
    const int result = ::fstatat(directory, name, &found, AT_SYMLINK_NOFOLLOW);
    if (failed_with(ENOENT, result)) return std::nullopt;
    succeeded(result, name);
    return file_stat(found);
  });
}

FileStat stat_at(int directory, const char* name) {
  return phase([&] {
    const std::optional<FileStat> found = stat_if_present_at(directory, name);
    if (!found) throw Failure(ENOENT, name);
    return *found;
  });
}

bool make_directory_at(int directory, const char* name) {
  return phase([&] {
    const int result = ::mkdirat(directory, name, kDirectoryMode);
    if (failed_with(EEXIST, result)) return false;
    succeeded(result, name);
    return true;
  });
}

void remove_directory_at(int directory, const char* name) {
  phase([&] { succeeded(::unlinkat(directory, name, AT_REMOVEDIR), name); });
}

void unlink_at(int directory, const char* name) {
  phase([&] { succeeded(::unlinkat(directory, name, 0), name); });
}

void unlink_if_present_at(int directory, const char* name) {
  phase([&] {
    const int result = ::unlinkat(directory, name, 0);
    if (!failed_with(ENOENT, result)) succeeded(result, name);
  });
}

void rename_at(int from, const char* name, int to, const char* new_name) {
  phase([&] { succeeded(::renameat(from, name, to, new_name), name, new_name); });
}

void link_at(int from, const char* name, int to, const char* new_name) {
  phase([&] { succeeded(::linkat(from, name, to, new_name, 0), name, new_name); });
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

std::size_t write_some(int descriptor, std::span<const std::byte> bytes) {
  return phase([&] {
    return static_cast<std::size_t>(
        succeeded(uninterrupted([&] { return ::write(descriptor, bytes.data(), bytes.size()); })));
  });
}

std::int64_t process_id() { return ::getpid(); }

}  // namespace client_manifest::system

#endif  // _WIN32
