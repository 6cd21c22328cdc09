// Enters and leaves host context managers by the methods of their type, as the host itself does.
#include "host/context_manager.h"

#include "host/message.h"
#include "host/value.h"

namespace client_manifest::host {
namespace {

// A method of the type, bound as the host binds the two ends of the protocol: past the instance.
Reference special_method(PyObject* object, const Reference& name, const char* if_missing) {
  PyTypeObject* const type = Py_TYPE(object);
  const Reference found = Reference::acquire(_PyType_Lookup(type, name.get()));
  if (!found) {
    const Reference type_name = take(PyType_GetName(type));
    raise(PyExc_TypeError, "'", type_name, "' object does not support the context manager protocol",
          if_missing);
  }
  const descrgetfunc bind = Py_TYPE(found.get())->tp_descr_get;
  if (bind == nullptr) return Reference::acquire(found.get());
  return take(bind(found.get(), object, reinterpret_cast<PyObject*>(type)));
}

}  // namespace

ContextManager::ContextManager(PyObject* manager) {
  const Reference enter_name = take(PyUnicode_InternFromString("__enter__"));
  const Reference exit_name = take(PyUnicode_InternFromString("__exit__"));
  const Reference enter = special_method(manager, enter_name, "");
  exit_ = special_method(manager, exit_name, " (missed __exit__ method)");
  entered_ = call(enter);
}

void ContextManager::leave() { static_cast<void>(call(exit_, Py_None, Py_None, Py_None)); }

bool ContextManager::leave_after(const Error& failure) {
  PyObject* const exception = failure.exception();
  const Reference traceback = Reference::steal(PyException_GetTraceback(exception));
  const Reference answer = call(exit_, reinterpret_cast<PyObject*>(Py_TYPE(exception)), exception,
                                traceback ? traceback.get() : Py_None);
  return is_true(answer.get());
}

}  // namespace client_manifest::host
