// Asks for the truth of a caller's value as the host's `except` block would.
#include "pinned_root/absence.h"

#include "host/value.h"

namespace client_manifest::pinned_root {

bool is_excused(const host::Error& error, PyObject* missing_ok) {
  if (!error.matches(PyExc_FileNotFoundError)) return false;
  const host::Handling handling(error);
  return host::is_true(missing_ok);
}

}  // namespace client_manifest::pinned_root
