// Implements the host's buffer protocol over one aligned allocation.
#include "host/chunk_buffer.h"

#include <array>
#include <memory>
#include <utility>

namespace client_manifest::host {
namespace {

constexpr std::size_t kCacheLine = 64;

struct ChunkObject {
  PyObject_HEAD AlignedMemory memory;
  std::size_t shown;
};

PyObject* chunk_type = nullptr;

ChunkObject* as_chunk(PyObject* object) { return reinterpret_cast<ChunkObject*>(object); }

void dealloc(PyObject* self) {
  PyTypeObject* const type = Py_TYPE(self);
  std::destroy_at(&as_chunk(self)->memory);
  type->tp_free(self);
  const Reference held_by_the_instance = Reference::steal(reinterpret_cast<PyObject*>(type));
}

int get_buffer(PyObject* self, Py_buffer* view, int flags) {
  const ChunkObject* const chunk = as_chunk(self);
  return PyBuffer_FillInfo(view, self, chunk->memory.bytes().data(),
                           static_cast<Py_ssize_t>(chunk->shown),
                           /*readonly=*/1, flags);
}

}  // namespace

void make_chunk_buffer_type() {
  static std::array<PyType_Slot, 3> slots{{
      {Py_tp_dealloc, reinterpret_cast<void*>(&dealloc)},
      {Py_bf_getbuffer, reinterpret_cast<void*>(&get_buffer)},
      {0, nullptr},
  }};
  static PyType_Spec spec{
      .name = "brindlefen.distribution.client_manifest._ChunkBuffer",
      .basicsize = static_cast<int>(sizeof(ChunkObject)),
      .itemsize = 0,
      .flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_DISALLOW_INSTANTIATION,
      .slots = slots.data(),
  };
  chunk_type = take(PyType_FromSpec(&spec)).release();
}

AlignedMemory::AlignedMemory(std::size_t size)
    // The allocator's own aligned allocation is slow enough to be felt with small files.
    : memory_(std::make_unique_for_overwrite<std::byte[]>(size + kCacheLine)) {
  void* start = memory_.get();
  std::size_t room = size + kCacheLine;
  bytes_ = {static_cast<std::byte*>(std::align(kCacheLine, size, start, room)), size};
}

ChunkBuffer::ChunkBuffer(AlignedMemory memory)
    : object_(take(PyType_GenericAlloc(reinterpret_cast<PyTypeObject*>(chunk_type), 0))) {
  std::construct_at(&as_chunk(object_.get())->memory, std::move(memory));
}

std::span<std::byte> ChunkBuffer::memory() const noexcept {
  return as_chunk(object_.get())->memory.bytes();
}

const Reference& ChunkBuffer::showing(std::size_t size) noexcept {
  as_chunk(object_.get())->shown = size;
  return object_;
}

}  // namespace client_manifest::host
