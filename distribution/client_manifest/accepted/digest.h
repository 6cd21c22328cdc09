// SHA-256 by the host's hashlib, whatever the module's name for it is bound to.
#pragma once

#include "client_manifest.h"

namespace client_manifest::accepted {

class Digest {
 public:
  Digest();  // hashlib.sha256()

  void update(const host::Reference& chunk) const;
  [[nodiscard]] host::Reference hexdigest() const;

 private:
  host::Reference state_;
};

// Of the whole of `payload`.
[[nodiscard]] host::Reference sha256_of(PyObject* payload);

// Takes up the host's own `hashlib.sha256`; once, at load.
void record_own_digest();
// Whether it is still the one that would be called. It keeps no chunk, and runs no foreign code.
[[nodiscard]] bool has_own_digest();

}  // namespace client_manifest::accepted
