// What one look at a file told: the fields of the system's stat, in exact integers.
#pragma once

#include <cstdint>

#include "host/reference.h"

namespace client_manifest::system {

struct Timestamp {
  std::int64_t seconds = 0;
  std::int64_t nanoseconds = 0;  // 0 to 999,999,999, also before the epoch

  friend bool operator==(const Timestamp&, const Timestamp&) = default;
};

enum class FileKind { regular, directory, other };

struct FileStat {
  std::uint64_t mode = 0;
  std::uint64_t inode = 0;
  std::uint64_t device = 0;
  std::uint64_t links = 0;
  std::uint64_t user = 0;
  std::uint64_t group = 0;
  std::int64_t size = 0;
  Timestamp accessed;
  Timestamp modified;
  Timestamp changed;
  std::int64_t block_size = 0;
  std::int64_t blocks = 0;
  std::uint64_t special_device = 0;
#ifdef _WIN32
  std::uint64_t attributes = 0;
  std::uint64_t reparse_tag = 0;
#endif
  FileKind kind = FileKind::other;

  [[nodiscard]] bool is_regular() const noexcept { return kind == FileKind::regular; }
  [[nodiscard]] bool is_directory() const noexcept { return kind == FileKind::directory; }
};

// Whether both looks saw one file unchanged: size, modification and change time, device, inode.
[[nodiscard]] inline bool same_key(const FileStat& one, const FileStat& other) noexcept {
  return one.size == other.size && one.modified == other.modified && one.changed == other.changed &&
         one.device == other.device && one.inode == other.inode;
}

// Whether both looks saw the same object, changed or not.
[[nodiscard]] inline bool same_object(const FileStat& one, const FileStat& other) noexcept {
  return one.device == other.device && one.inode == other.inode;
}

// Nanoseconds since the epoch as a host integer, which has room for any timestamp.
[[nodiscard]] host::Reference nanoseconds(const Timestamp& time);

// Takes up the host's type of stat results; once, at load.
void record_stat_result_type();

// The host's `os.stat_result` with these fields.
[[nodiscard]] host::Reference stat_result(const FileStat& stat);

}  // namespace client_manifest::system
