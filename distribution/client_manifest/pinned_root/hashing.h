// Hashes contained files in a bounded stream, under the three proofs: descriptor, path, root.
#pragma once

#include "accepted/file_identity.h"
#include "client_manifest.h"

namespace client_manifest::pinned_root {

// `self.hash_regular_file(...)` by our own operation; `chunk_bytes` may be null for the default.
[[nodiscard]] accepted::FileIdentity hash_regular_file(PyObject* self, PyObject* relative_path,
                                                       PyObject* label, PyObject* chunk_bytes);

extern const host::Operation kHashRegularFile;
extern const host::Operation kHashOpenRegularFile;
extern const host::Operation kAssertOpenRegularFileIdentity;

}  // namespace client_manifest::pinned_root
