// An open file as the host has it, and the proof that it stood still while it was consumed.
//
// A file is any object with `fileno()`, `read(n)` and `seek(0)`: all of them foreign code.
#pragma once

#include <cstdint>

#include "client_manifest.h"
#include "pinned_root/refusal.h"
#include "system/file_stat.h"

namespace client_manifest::pinned_root {

// `fstat(file.fileno())`.
[[nodiscard]] system::FileStat stat_open_file(PyObject* file);

// `file.read(size)`, which must be true to count; nothing at the end of the file.
[[nodiscard]] host::Reference read_chunk(PyObject* file, PyObject* size);

// How many bytes were consumed. It does not wrap, whatever lengths a foreign chunk claims.
class ByteCount {
 public:
  void add(std::uint64_t bytes) noexcept;
  void add(const host::Reference& chunk);  // len(chunk)

  [[nodiscard]] bool is(std::int64_t size) const noexcept;

 private:
  std::uint64_t count_ = 0;
};

// A file was opened that is no regular one.
[[nodiscard]] Refusal not_a_regular_file(const Subject& subject);

// The file changed between the first look and the last, or not all of it was consumed.
[[nodiscard]] Refusal changed_while_read(const Subject& subject);
[[nodiscard]] Refusal changed_while_hashed(const Subject& subject);

// An open file is not the one that an identity was taken from.
[[nodiscard]] Refusal changed_while_open(const Subject& subject);

}  // namespace client_manifest::pinned_root
