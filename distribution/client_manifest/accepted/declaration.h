// Proves from the manifest alone that it declares one sidecar, the same in every place that speaks
// of it, and gives the path at which it is to be read.
#pragma once

#include "client_manifest.h"

namespace client_manifest::accepted {

[[nodiscard]] host::Reference validate_signals_index_manifest_declaration(PyObject* manifest);

extern const host::Operation kValidateSignalsIndexManifestDeclaration;

namespace bound {
[[nodiscard]] host::Reference validate_signals_index_manifest_declaration(PyObject* manifest);
}  // namespace bound

}  // namespace client_manifest::accepted
