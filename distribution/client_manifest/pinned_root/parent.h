// Walks a contained path to the directory that holds its leaf.
#pragma once

#include "client_manifest.h"
#include "pinned_root/refusal.h"
#include "system/owned_descriptor.h"

namespace client_manifest::pinned_root {

// A parent directory, owned by whoever asked for it, and the name of the leaf in it.
struct Parent {
  system::OwnedDescriptor descriptor;
  host::Reference name;

  void close() { descriptor.close(); }
};

// The parent of the subject's path beneath the root `self`.
[[nodiscard]] Parent open_parent(PyObject* self, const Subject& subject, PyObject* create);

extern const host::Operation kOpenParent;

}  // namespace client_manifest::pinned_root
