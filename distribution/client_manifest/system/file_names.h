// The segments of a path as the system takes them: bytes in the host's file-system encoding.
//
// A segment that the host refuses to encode does not fail here but when a walk comes to it, so
// that what stands before it on the path is opened and judged first.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "host/error.h"

namespace client_manifest::system {

class FileNames {
 public:
  // The segments of the text `path`, split at "/".
  [[nodiscard]] static FileNames split(PyObject* path);
  // The items of the tuple `components`, from the one at `first` on.
  [[nodiscard]] static FileNames of(PyObject* components, Py_ssize_t first = 0);
  // A single name.
  [[nodiscard]] static FileNames one(PyObject* name);

  [[nodiscard]] std::size_t size() const noexcept { return size_; }

  // The last of them.
  [[nodiscard]] const char* last() const { return at(size() - 1); }

  // The segment at `index`, ended by a NUL; throws the host's refusal to encode it.
  [[nodiscard]] const char* at(std::size_t index) const;

 private:
  void append(PyObject* name);

  std::size_t size_ = 0;             // of all segments, those behind a refused one included
  std::string bytes_;                // the segments, a NUL behind each
  std::vector<std::size_t> starts_;  // where each begins
  // Why the segment behind these cannot be encoded. It is handed out when it is thrown.
  mutable std::unique_ptr<host::Error> refused_;
};

}  // namespace client_manifest::system
