// How much of a file is held in memory at one time.
#pragma once

#include "host/operation.h"
#include "host/value.h"

namespace client_manifest::pinned_root {

// The chunk of a whole read and of a copy, and of a hash unless the caller says otherwise.
inline constexpr std::int64_t kChunkBytes = 0x100000;

// The parameter by which a caller says otherwise, and what it comes to.
inline constexpr host::Parameter kChunkBytesParameter{"chunk_bytes", host::Pass::by_keyword,
                                                      "1048576"};
[[nodiscard]] inline host::Reference chunk_bytes_or_default(PyObject* given) {
  return given != nullptr ? host::Reference::acquire(given) : host::integer(kChunkBytes);
}

}  // namespace client_manifest::pinned_root
