// Looks methods up as the host's own calls do, without an object that binds them.
#include "host/method.h"

namespace client_manifest::host {

Method::Method(PyObject* object, PyObject* name) : object_(object) {
  PyObject* found = nullptr;
  is_unbound_ = _PyObject_GetMethod(object, name, &found) != 0;
  callable_ = take(found);
}

bool Method::is(const Operation& operation) const noexcept {
  if (is_unbound_) return operation.is_method_for(callable_.get(), object_);
  return operation.signature().kind == Kind::method ? operation.is(callable_.get(), object_)
                                                    : operation.is(callable_.get());
}

}  // namespace client_manifest::host
