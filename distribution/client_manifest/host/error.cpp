// Takes host exceptions up as C++ exceptions and hands them back whole: class, text, chain.
#include "host/error.h"

namespace client_manifest::host {
namespace {

Reference fetch_normalized() {
  PyObject* kind = nullptr;
  PyObject* value = nullptr;
  PyObject* traceback = nullptr;
  PyErr_Fetch(&kind, &value, &traceback);
  if (kind == nullptr) {
    PyErr_SetString(PyExc_SystemError, "a host call failed without an exception");
    PyErr_Fetch(&kind, &value, &traceback);
  }
  PyErr_NormalizeException(&kind, &value, &traceback);
  const Reference owned_kind = Reference::steal(kind);
  const Reference owned_traceback = Reference::steal(traceback);
  Reference exception = Reference::steal(value);
  if (owned_traceback) PyException_SetTraceback(exception.get(), owned_traceback.get());
  return exception;
}

}  // namespace

Error::Error(PyObject* kind, const Reference& argument) {
  // The host would spread a tuple over the parameters; the one argument is passed as it is.
  const Reference exception = Reference::steal(PyObject_CallOneArg(kind, argument.get()));
  if (exception) PyErr_SetObject(kind, exception.get());
  exception_ = fetch_normalized();
}

Error Error::fetch() { return Error(fetch_normalized()); }

bool Error::matches(PyObject* kind) const noexcept {
  return PyErr_GivenExceptionMatches(exception_.get(), kind) != 0;
}

Error Error::from(const Error& cause) && noexcept {
  PyException_SetContext(exception_.get(), Py_NewRef(cause.exception()));
  PyException_SetCause(exception_.get(), Py_NewRef(cause.exception()));
  return std::move(*this);
}

void Error::restore() && noexcept {
  PyObject* const exception = exception_.release();
  PyErr_Restore(Py_NewRef(Py_TYPE(exception)), exception, PyException_GetTraceback(exception));
}

}  // namespace client_manifest::host
