// Builds the arguments of a call that names its parameters.
#include "host/call.h"

namespace client_manifest::host {

Reference invoke(PyObject* object, const char* name, std::initializer_list<PyObject*> positional,
                 std::span<const Keyword> named) {
  const Reference callable = attribute(object, name);
  const Reference arguments = take(PyTuple_New(static_cast<Py_ssize_t>(positional.size())));
  Py_ssize_t place = 0;
  for (PyObject* const argument : positional) {
    PyTuple_SET_ITEM(arguments.get(), place++, Py_NewRef(argument));
  }
  const Reference keywords = take(PyDict_New());
  for (const Keyword& keyword : named) {
    check(PyDict_SetItemString(keywords.get(), keyword.name, keyword.value));
  }
  return take(PyObject_Call(callable.get(), arguments.get(), keywords.get()));
}

}  // namespace client_manifest::host
