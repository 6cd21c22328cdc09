// Handles travel as plain integers outside the boundary: duplicated, closed, and taken out of what
// the system gave.
#include "host/message.h"
#include "host/value.h"
#include "windows/handle_operations.h"
#include "windows/native_interface.h"

namespace client_manifest::windows {
namespace {

using host::Arguments;
using host::Kind;
using host::Operation;
using host::Reference;
using host::take;

constexpr host::Signature kDuplicateSignature{
    .name = "duplicate",
    .kind = Kind::method,
    .parameters = {{{"handle"}}},
};

Reference duplicate(PyObject* self, const Arguments& arguments) {
  constexpr std::uint32_t same_access = 2;
  const NativeInterface native = native_of(self);
  const Reference process = native.call("_current_process", {});
  const Reference duplicated = native.simple("HANDLE");
  native.call_or_raise("_duplicate_handle", {process.get(), native.handle(arguments[0]).get(),
                                             process.get(), native.address_of(duplicated).get(),
                                             number(0).get(), Py_False, number(same_access).get()});
  return native.handle_value(duplicated.get());
}

constexpr host::Signature kCloseSignature{
    .name = "close",
    .kind = Kind::method,
    .parameters = {{{"handle"}}},
};

Reference close(PyObject* self, const Arguments& arguments) {
  const NativeInterface native = native_of(self);
  native.call_or_raise("_close_handle", {native.handle(arguments[0]).get()});
  return Reference::acquire(Py_None);
}

constexpr host::Signature kValueSignature{
    .name = "_handle_value",
    .kind = Kind::static_method,
    .parameters = {{{"handle"}}},
};

Reference handle_value(PyObject* /*type*/, const Arguments& arguments) {
  const Reference value = value_or_self(arguments[0]);
  if (value.get() == Py_None) {
    host::raise(PyExc_OSError, "Windows returned an invalid null handle");
  }
  return take(PyNumber_Long(value.get()));
}

}  // namespace

constinit const Operation kDuplicate = Operation::of<kDuplicateSignature, &duplicate>();
constinit const Operation kCloseHandle = Operation::of<kCloseSignature, &close>();
constinit const Operation kHandleValue = Operation::of<kValueSignature, &handle_value>();

}  // namespace client_manifest::windows
