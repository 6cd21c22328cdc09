// The canonical signals index: of all byte sequences with the same content exactly one passes.
#pragma once

#include "client_manifest.h"

namespace client_manifest::documents {

// Gives the document as it was parsed.
[[nodiscard]] host::Reference parse_canonical_signals_index_bytes(PyObject* payload,
                                                                  PyObject* label);

extern const host::Operation kParseCanonicalSignalsIndexBytes;

namespace bound {
[[nodiscard]] host::Reference parse_canonical_signals_index_bytes(PyObject* payload,
                                                                  PyObject* label);
}  // namespace bound

}  // namespace client_manifest::documents
