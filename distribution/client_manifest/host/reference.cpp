// Gives references up where the host may still be asked to, and nowhere else.
#include "host/reference.h"

#include "host/shutdown.h"

namespace client_manifest::host {

void Reference::give_up_last(PyObject* object) noexcept {
  try {
    Py_DECREF(object);
  } catch (...) {
    // A finaliser wanted the lock while the host was shutting down.
    park_thread();
  }
}

}  // namespace client_manifest::host
