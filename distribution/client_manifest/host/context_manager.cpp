// Enters and leaves host context managers by the methods of their type, as the host itself does.
#include "host/context_manager.h"

#include "host/message.h"
#include "host/value.h"

namespace client_manifest::host {
namespace {

Reference special_method(PyObject* object, const char* name) {
  auto* const type = reinterpret_cast<PyObject*>(Py_TYPE(object));
  PyObject* const found = PyObject_GetAttrString(type, name);
  if (found != nullptr) return Reference::steal(found);
  Error failure = Error::fetch();
  if (!failure.matches(PyExc_AttributeError)) throw Error(std::move(failure));
  const Reference type_name = take(PyType_GetName(Py_TYPE(object)));
  raise(PyExc_TypeError, "'", type_name, "' object does not support the context manager protocol");
}

}  // namespace

ContextManager::ContextManager(PyObject* manager) : manager_(Reference::acquire(manager)) {
  const Reference enter = special_method(manager, "__enter__");
  exit_ = special_method(manager, "__exit__");
  entered_ = call(enter, manager);
}

void ContextManager::leave() {
  static_cast<void>(call(exit_, manager_, Py_None, Py_None, Py_None));
}

bool ContextManager::leave_after(const Error& failure) {
  PyObject* const exception = failure.exception();
  const Reference traceback = Reference::steal(PyException_GetTraceback(exception));
  const Reference answer = call(exit_, manager_, reinterpret_cast<PyObject*>(Py_TYPE(exception)),
                                exception, traceback ? traceback.get() : Py_None);
  return is_true(answer.get());
}

}  // namespace client_manifest::host
