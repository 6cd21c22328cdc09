// A host buffer over memory that starts on a cache line, filled by system calls without the lock
// and shown to the host's digests without a copy.
//
// The memory belongs to a host object: whoever keeps a view of it keeps it alive.
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <utility>

#include "host/error.h"

namespace client_manifest::host {

// Memory that starts on a cache line. It can be made without the interpreter lock.
class AlignedMemory {
 public:
  AlignedMemory() noexcept = default;
  explicit AlignedMemory(std::size_t size);
  AlignedMemory(AlignedMemory&& other) noexcept
      : memory_(std::move(other.memory_)), bytes_(std::exchange(other.bytes_, {})) {}
  AlignedMemory(const AlignedMemory&) = delete;
  AlignedMemory& operator=(AlignedMemory&& other) noexcept {
    memory_ = std::move(other.memory_);
    bytes_ = std::exchange(other.bytes_, {});
    return *this;
  }
  AlignedMemory& operator=(const AlignedMemory&) = delete;
  ~AlignedMemory() = default;

  [[nodiscard]] std::span<std::byte> bytes() const noexcept { return bytes_; }

 private:
  std::unique_ptr<std::byte[]> memory_;
  std::span<std::byte> bytes_;
};

class ChunkBuffer {
 public:
  explicit ChunkBuffer(AlignedMemory memory);

  [[nodiscard]] std::span<std::byte> memory() const noexcept;

  // The host object through which the first `size` bytes can be read.
  [[nodiscard]] const Reference& showing(std::size_t size) noexcept;

 private:
  Reference object_;
};

// Makes the host type behind it; once, at load.
void make_chunk_buffer_type();

}  // namespace client_manifest::host
