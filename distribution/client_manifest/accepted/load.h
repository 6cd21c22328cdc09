// The main transaction: a whole distribution on disk is authenticated under one pin of its root.
#pragma once

#include "client_manifest.h"

namespace client_manifest::accepted {

// Gives the LoadedAcceptedDistributionSet; `manifest` may be None.
[[nodiscard]] host::Reference load_accepted_distribution_set(PyObject* root, PyObject* manifest);

extern const host::Operation kLoadAcceptedDistributionSet;

}  // namespace client_manifest::accepted
