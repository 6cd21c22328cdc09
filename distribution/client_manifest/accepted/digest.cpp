// Reaches the digest through the module's `hashlib`, each time it is needed.
#include "accepted/digest.h"

namespace client_manifest::accepted {
namespace {

using host::Reference;

PyObject* own_sha256 = nullptr;  // lives as long as the process

Reference sha256() {
  const Reference hashlib = global(names().hashlib);
  return host::attribute(hashlib.get(), names().sha256);
}

Reference hexdigest_of(const Reference& state) {
  return host::call_method(state.get(), names().hexdigest);
}

}  // namespace

Digest::Digest() : state_(host::call(sha256())) {}

void Digest::update(const Reference& chunk) const {
  static_cast<void>(host::call_method(state_.get(), names().update, chunk));
}

Reference Digest::hexdigest() const { return hexdigest_of(state_); }

Reference sha256_of(PyObject* payload) { return hexdigest_of(host::call(sha256(), payload)); }

void record_own_digest() { own_sha256 = sha256().release(); }

bool has_own_digest() { return sha256().get() == own_sha256; }

}  // namespace client_manifest::accepted
