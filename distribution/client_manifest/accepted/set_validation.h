// Decides whether a manifest and the bytes of its sidecar form one closed, accepted set.
#pragma once

#include "client_manifest.h"

namespace client_manifest::accepted {

// Gives the AcceptedDistributionSet; `membership_payloads` may be None.
[[nodiscard]] host::Reference validate_accepted_distribution_set(PyObject* manifest,
                                                                 PyObject* signals_index_bytes,
                                                                 PyObject* membership_payloads);

extern const host::Operation kValidateAcceptedDistributionSet;

namespace bound {
// Without payloads.
[[nodiscard]] host::Reference validate_accepted_distribution_set(PyObject* manifest,
                                                                 PyObject* signals_index_bytes);
}  // namespace bound

}  // namespace client_manifest::accepted
