// What a positive identity, a size and a digest look like in a document. Each requirement gives
// the value back as it came, or refuses it in fixed words.
#pragma once

#include "client_manifest.h"

namespace client_manifest::accepted {

[[nodiscard]] host::Reference require_positive_identity(PyObject* value, PyObject* label);
[[nodiscard]] host::Reference require_nonnegative_size(PyObject* value, PyObject* relative_path);
[[nodiscard]] host::Reference require_sha256(PyObject* value, PyObject* relative_path);

extern const host::Operation kRequirePositiveIdentity;
extern const host::Operation kRequireNonnegativeSize;
extern const host::Operation kRequireSha256;

namespace bound {
[[nodiscard]] host::Reference require_positive_identity(PyObject* value, PyObject* label);
[[nodiscard]] host::Reference require_nonnegative_size(PyObject* value, PyObject* relative_path);
[[nodiscard]] host::Reference require_sha256(PyObject* value, PyObject* relative_path);
}  // namespace bound

}  // namespace client_manifest::accepted
