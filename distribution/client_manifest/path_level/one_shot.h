// The frame of every one-shot function: pin a root, do one thing through it, prove it unchanged,
// release it. A result reaches the caller only after the proof.
#pragma once

#include "client_manifest.h"
#include "host/context_manager.h"

namespace client_manifest::path_level {

// `PinnedRoot(root)`, of whatever class the module's name stands for.
[[nodiscard]] host::Reference pin(PyObject* root);
// `PinnedRoot(root, create=True)`.
[[nodiscard]] host::Reference pin_or_create(PyObject* root);

// `pinned.assert_root_unchanged()`.
void prove(PyObject* pinned);

// Runs `operation` on the pinned root and proves the root afterwards. The root is released on
// every exit. What the operation changed on the disk stays changed when the proof fails.
template <class Operation>
[[nodiscard]] host::Reference one_shot(const host::Reference& root, Operation&& operation) {
  return host::with(root.get(), [&](PyObject* pinned) {
    host::Reference result = operation(pinned);
    prove(pinned);
    return result;
  });
}

}  // namespace client_manifest::path_level
