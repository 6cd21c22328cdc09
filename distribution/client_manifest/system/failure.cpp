// Turns a failed system call into the host's OSError.
#include "system/failure.h"

#include <cerrno>

namespace client_manifest::system {

host::Error Failure::as_host_error() && {
  if (raised_) return std::move(*raised_);
  host::Reference name;
  if (name_) name = host::take(PyUnicode_DecodeFSDefault(name_->c_str()));
  errno = number_;
  PyErr_SetFromErrnoWithFilenameObject(PyExc_OSError, name.get());
  return host::Error::fetch();
}

}  // namespace client_manifest::system
