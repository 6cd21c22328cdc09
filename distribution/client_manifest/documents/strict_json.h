// Untrusted bytes to one JSON object, or a refusal: nothing that could be read two ways passes.
#pragma once

#include "client_manifest.h"

namespace client_manifest::documents {

// A dict of `pairs`, in their order; a key that comes twice is a _DuplicateJsonObjectKeyError.
[[nodiscard]] host::Reference object_without_duplicate_keys(PyObject* pairs);

[[noreturn]] void reject_nonfinite_json_constant(PyObject* value);

[[nodiscard]] host::Reference parse_strict_json_object_bytes(PyObject* payload, PyObject* label);
[[nodiscard]] host::Reference parse_distribution_manifest_bytes(PyObject* manifest_bytes,
                                                                PyObject* label);

extern const host::Operation kObjectWithoutDuplicateKeys;
extern const host::Operation kRejectNonfiniteJsonConstant;
extern const host::Operation kParseStrictJsonObjectBytes;
extern const host::Operation kParseDistributionManifestBytes;

namespace bound {
[[nodiscard]] host::Reference parse_strict_json_object_bytes(PyObject* payload, PyObject* label);
[[nodiscard]] host::Reference parse_distribution_manifest_bytes(PyObject* manifest_bytes,
                                                                PyObject* label);
}  // namespace bound

}  // namespace client_manifest::documents
