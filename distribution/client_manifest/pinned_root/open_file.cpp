// Asks host files for their descriptor and their bytes, and believes only what the system says.
#include "pinned_root/open_file.h"

#include <limits>

#include "host/interpreter_lock.h"
#include "host/value.h"
#include "system/calls.h"

namespace client_manifest::pinned_root {

using host::Reference;

system::FileStat stat_open_file(PyObject* file) {
  const Reference number = host::call_method(file, names().fileno);
  return system::stat_descriptor(host::as_int(number.get()));
}

Reference read_chunk(PyObject* file, PyObject* size) {
  // As between any two steps of the host's own loop.
  host::run_signal_handlers();
  Reference chunk = host::call_method(file, names().read, size);
  return host::is_true(chunk.get()) ? std::move(chunk) : Reference();
}

void ByteCount::add(std::uint64_t bytes) noexcept {
  const std::uint64_t room = std::numeric_limits<std::uint64_t>::max() - count_;
  count_ += bytes < room ? bytes : room;
}

void ByteCount::add(const Reference& chunk) {
  const Py_ssize_t size = PyObject_Size(chunk.get());
  if (size < 0) throw host::Error::fetch();
  add(static_cast<std::uint64_t>(size));
}

bool ByteCount::is(std::int64_t size) const noexcept {
  return size >= 0 && count_ == static_cast<std::uint64_t>(size);
}

Refusal not_a_regular_file(const Subject& subject) {
  return {{PyExc_ValueError, " must be a regular file: "}, subject};
}

Refusal changed_while_read(const Subject& subject) {
  return {{PyExc_ValueError, " changed while being read: "}, subject};
}

Refusal changed_while_hashed(const Subject& subject) {
  return {{PyExc_ValueError, " changed while being hashed: "}, subject};
}

Refusal changed_while_open(const Subject& subject) {
  return {{PyExc_ValueError, " changed while open: "}, subject};
}

}  // namespace client_manifest::pinned_root
