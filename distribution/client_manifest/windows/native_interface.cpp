// Speaks to the host's foreign-function module on behalf of a boundary.
#include "windows/native_interface.h"

#include "host/value.h"

namespace client_manifest::windows {

using host::attribute;
using host::invoke;
using host::Reference;
using host::take;

Reference number(std::uint32_t value) { return host::integer(std::uint64_t{value}); }

Reference value_or_self(PyObject* handle) {
  PyObject* value = nullptr;
  host::check(_PyObject_LookupAttr(handle, names().value, &value));
  return value != nullptr ? Reference::steal(value) : Reference::acquire(handle);
}

Reference NativeInterface::ctypes() const { return attribute(boundary_, "_ctypes"); }

Reference NativeInterface::type(const char* wintype) const {
  return attribute(attribute(boundary_, "_wintypes").get(), wintype);
}

Reference NativeInterface::record(const char* type, std::initializer_list<PyObject*> values) const {
  return invoke(boundary_, type, values);
}

Reference NativeInterface::simple(const char* wintype,
                                  std::initializer_list<PyObject*> value) const {
  return invoke(attribute(boundary_, "_wintypes").get(), wintype, value);
}

Reference NativeInterface::address_of(const Reference& record) const {
  return invoke(ctypes().get(), "byref", {record.get()});
}

Reference NativeInterface::size_of(const Reference& record) const {
  return invoke(ctypes().get(), "sizeof", {record.get()});
}

Reference NativeInterface::zeroed_buffer(std::uint32_t size) const {
  return invoke(ctypes().get(), "create_string_buffer", {number(size).get()});
}

Reference NativeInterface::buffer_of(PyObject* bytes) const {
  const Py_ssize_t length = PyObject_Size(bytes);
  if (length < 0) throw host::Error::fetch();
  const Reference size = take(PyLong_FromSsize_t(length));
  return invoke(ctypes().get(), "create_string_buffer", {bytes, size.get()});
}

Reference NativeInterface::call(const char* name,
                                std::initializer_list<PyObject*> arguments) const {
  return invoke(boundary_, name, arguments);
}

void NativeInterface::call_or_raise(const char* name,
                                    std::initializer_list<PyObject*> arguments) const {
  if (!host::is_true(call(name, arguments).get())) raise_last_error();
}

void NativeInterface::raise_last_error() const {
  const Reference module = ctypes();
  const Reference last_error = invoke(module.get(), "get_last_error", {});
  throw host::Error::raised(invoke(module.get(), "WinError", {last_error.get()}));
}

Reference NativeInterface::handle_value(PyObject* handle) const {
  return invoke(boundary_, "_handle_value", {handle});
}

void NativeInterface::raise_status(const Reference& status, PyObject* label) const {
  static_cast<void>(invoke(boundary_, "_raise_status", {status.get(), label}));
}

}  // namespace client_manifest::windows
