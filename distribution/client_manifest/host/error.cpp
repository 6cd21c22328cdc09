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

bool can_be_caught(PyObject* kind) {
  if (PyTuple_Check(kind) == 0) return PyExceptionClass_Check(kind);
  for (Py_ssize_t i = 0; i < PyTuple_GET_SIZE(kind); ++i) {
    if (!PyExceptionClass_Check(PyTuple_GET_ITEM(kind, i))) return false;
  }
  return true;
}

}  // namespace

// The host would spread a tuple over the parameters; the one argument is passed as it is.
Error::Error(PyObject* kind, const Reference& argument)
    : Error(raised(take(PyObject_CallOneArg(kind, argument.get())))) {}

Error Error::raised(const Reference& exception) {
  if (PyExceptionInstance_Check(exception.get())) {
    PyErr_SetObject(PyExceptionInstance_Class(exception.get()), exception.get());
  } else {
    PyErr_SetString(PyExc_TypeError, "exceptions must derive from BaseException");
  }
  return fetch();
}

Error Error::fetch() { return Error(fetch_normalized()); }

bool Error::matches(PyObject* kind) const {
  if (!can_be_caught(kind)) {
    PyErr_SetString(PyExc_TypeError,
                    "catching classes that do not inherit from BaseException is not allowed");
    throw fetch();
  }
  return PyErr_GivenExceptionMatches(exception_.get(), kind) != 0;
}

Error Error::from(const Error& cause) && noexcept {
  PyException_SetCause(exception_.get(), Py_NewRef(cause.exception()));
  return std::move(*this);
}

void Error::restore() && noexcept {
  PyObject* const exception = exception_.release();
  PyErr_Restore(Py_NewRef(Py_TYPE(exception)), exception, PyException_GetTraceback(exception));
}

}  // namespace client_manifest::host
