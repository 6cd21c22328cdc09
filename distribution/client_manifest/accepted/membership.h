// Which files a signals index calls members, each of exactly one owner.
#pragma once

#include "client_manifest.h"

namespace client_manifest::accepted {

// "found_signals", "found_strategies" or "useful_signals" by the form of the path, or None.
[[nodiscard]] host::Reference found_pnl_path_section(PyObject* relative_path);

// A tuple of (membership path, section), in the order of the paths.
[[nodiscard]] host::Reference membership_references(PyObject* document);

extern const host::Operation kFoundPnlPathSection;
extern const host::Operation kMembershipReferences;

namespace bound {
[[nodiscard]] host::Reference found_pnl_path_section(PyObject* relative_path);
[[nodiscard]] host::Reference membership_references(PyObject* document);
// `isinstance(value, Mapping)`.
[[nodiscard]] bool is_mapping(PyObject* value);
}  // namespace bound

}  // namespace client_manifest::accepted
