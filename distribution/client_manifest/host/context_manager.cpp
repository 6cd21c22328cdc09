// Enters and leaves host context managers by the methods of their type, as the host itself does.
#include "host/context_manager.h"

#include "host/message.h"
#include "host/value.h"

namespace client_manifest::host {
namespace {

// They live as long as the process.
PyObject* enter_name = nullptr;
PyObject* exit_name = nullptr;

}  // namespace

void make_context_manager_names() {
  if (enter_name == nullptr) enter_name = take(PyUnicode_InternFromString("__enter__")).release();
  if (exit_name == nullptr) exit_name = take(PyUnicode_InternFromString("__exit__")).release();
}

ContextManager::SpecialMethod::SpecialMethod(PyObject* manager, PyObject* name,
                                             const char* if_missing)
    : manager_(Reference::acquire(manager)) {
  PyTypeObject* const type = Py_TYPE(manager);
  unbound_ = Reference::acquire(_PyType_Lookup(type, name));
  if (!unbound_) {
    const Reference type_name = take(PyType_GetName(type));
    raise(PyExc_TypeError, "'", type_name, "' object does not support the context manager protocol",
          if_missing);
  }
  PyTypeObject* const kind = Py_TYPE(unbound_.get());
  if (PyType_HasFeature(kind, Py_TPFLAGS_METHOD_DESCRIPTOR) != 0) return;
  bound_ =
      kind->tp_descr_get == nullptr
          ? Reference::acquire(unbound_.get())
          : take(kind->tp_descr_get(unbound_.get(), manager, reinterpret_cast<PyObject*>(type)));
}

ContextManager::ContextManager(PyObject* manager)
    : enter_(manager, enter_name, ""),
      exit_(manager, exit_name, " (missed __exit__ method)"),
      entered_(enter_()) {}

void ContextManager::leave() { static_cast<void>(exit_(Py_None, Py_None, Py_None)); }

bool ContextManager::leave_after(const Error& failure) {
  PyObject* const exception = failure.exception();
  const Reference traceback = Reference::steal(PyException_GetTraceback(exception));
  const Reference answer = exit_(reinterpret_cast<PyObject*>(Py_TYPE(exception)), exception,
                                 traceback ? traceback.get() : Py_None);
  return is_true(answer.get());
}

}  // namespace client_manifest::host
