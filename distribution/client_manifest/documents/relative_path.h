// The one judge of contained paths: a text passes as it is, or it is refused; nothing is repaired.
#pragma once

#include "client_manifest.h"

namespace client_manifest::documents {

// Gives `relative_path` itself back.
[[nodiscard]] host::Reference validate_manifest_relative_path(PyObject* relative_path);

extern const host::Operation kValidateManifestRelativePath;

namespace bound {
// The same by what the module's name is bound to.
[[nodiscard]] host::Reference validate_manifest_relative_path(PyObject* relative_path);
}  // namespace bound

}  // namespace client_manifest::documents
