// A method of an object, looked up once: it can be asked whether it is an operation of ours, and
// then be called.
#pragma once

#include "host/call.h"
#include "host/operation.h"

namespace client_manifest::host {

class Method {
 public:
  // Looks `object.name` up as a call of it would.
  Method(PyObject* object, PyObject* name);

  // Whether a call would run `operation` for the object.
  [[nodiscard]] bool is(const Operation& operation) const noexcept;

  // Calls it, the last arguments as keywords where `keywords` names them.
  template <HostArgument... Arguments>
  [[nodiscard]] Reference call(PyObject* keywords, const Arguments&... arguments) const {
    return is_unbound_ ? call_with_keywords(callable_, keywords, object_, arguments...)
                       : call_with_keywords(callable_, keywords, arguments...);
  }

 private:
  PyObject* object_;
  Reference callable_;
  bool is_unbound_;  // it takes the object as its first argument
};

}  // namespace client_manifest::host
