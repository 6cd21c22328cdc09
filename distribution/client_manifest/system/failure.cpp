// Turns a failed system call into the host's OSError.
#include "system/failure.h"

#include <cerrno>

namespace client_manifest::system {
namespace {

host::Reference decoded(const std::optional<std::string>& name) {
  return name ? host::take(PyUnicode_DecodeFSDefault(name->c_str())) : host::Reference();
}

}  // namespace

bool Failure::is_missing() const {
  return raised_ ? raised_->matches(PyExc_FileNotFoundError) : number_ == ENOENT;
}

bool Failure::is_there_already() const {
  return raised_ ? raised_->matches(PyExc_FileExistsError) : number_ == EEXIST;
}

bool Failure::is_os_error() const { return !raised_ || raised_->matches(PyExc_OSError); }

host::Error Failure::as_host_error() && {
  if (raised_) return std::move(*raised_).taken();
  const host::Reference name = decoded(name_);
  const host::Reference new_name = decoded(new_name_);
  errno = number_;
  PyErr_SetFromErrnoWithFilenameObjects(PyExc_OSError, name.get(), new_name.get());
  return host::Error::fetch();
}

}  // namespace client_manifest::system
