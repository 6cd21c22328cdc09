// The Windows interfaces that a boundary has bound to itself, as its operations use them.
//
// Everything is reached through the instance: the records and calls are its attributes.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "client_manifest.h"
#include "windows/native_constants.h"

namespace client_manifest::windows {

class NativeInterface {
 public:
  explicit NativeInterface(PyObject* boundary) noexcept : boundary_(boundary) {}

  [[nodiscard]] host::Reference ctypes() const;
  // A type of the host's foreign-function modules.
  [[nodiscard]] host::Reference type(const char* wintype) const;
  // A new record of a type of the boundary's; fields without a value are zero.
  [[nodiscard]] host::Reference record(const char* type,
                                       std::initializer_list<PyObject*> values = {}) const;
  // A new value of a simple type, zero or as given.
  [[nodiscard]] host::Reference simple(const char* wintype,
                                       std::initializer_list<PyObject*> value = {}) const;

  // `HANDLE(handle)`.
  [[nodiscard]] host::Reference handle(PyObject* value) const { return simple("HANDLE", {value}); }

  // The address and the size of a record, as arguments of a call.
  [[nodiscard]] host::Reference address_of(const host::Reference& record) const;
  [[nodiscard]] host::Reference size_of(const host::Reference& record) const;
  // Zeroed memory, and memory that holds exactly `bytes`.
  [[nodiscard]] host::Reference zeroed_buffer(std::uint32_t size) const;
  [[nodiscard]] host::Reference buffer_of(PyObject* bytes) const;

  // Calls what is bound to `name`.
  [[nodiscard]] host::Reference call(const char* name,
                                     std::initializer_list<PyObject*> arguments) const;
  // The same for a call that reports failure by a false result: the host's OSError for the last
  // error then.
  void call_or_raise(const char* name, std::initializer_list<PyObject*> arguments) const;
  [[noreturn]] void raise_last_error() const;

  // The boundary's own operations.
  [[nodiscard]] host::Reference handle_value(PyObject* handle) const;
  void raise_status(const host::Reference& status, PyObject* label) const;

 private:
  PyObject* boundary_;
};

[[nodiscard]] inline NativeInterface native_of(PyObject* boundary) noexcept {
  return NativeInterface(boundary);
}

// `handle.value` if it has one, else the handle itself.
[[nodiscard]] host::Reference value_or_self(PyObject* handle);

// A number as a host integer, for an argument of a call.
[[nodiscard]] host::Reference number(std::uint32_t value);

}  // namespace client_manifest::windows
