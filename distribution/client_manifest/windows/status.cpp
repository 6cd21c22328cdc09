// Turns a status of the native calls into the host's exceptions.
#include "host/message.h"
#include "host/value.h"
#include "windows/handle_operations.h"
#include "windows/native_interface.h"

namespace client_manifest::windows {
namespace {

using host::Arguments;
using host::Operation;
using host::Reference;
using host::take;

constexpr host::Signature kSignature{
    .name = "_raise_status",
    .kind = host::Kind::method,
    .parameters = {{{"status"}, {"label"}}},
};

// The 32 bits of a status, whichever way they were taken for a number.
std::uint32_t bits_of(PyObject* status) {
  const unsigned long bits = PyLong_AsUnsignedLongMask(take(PyNumber_Index(status)).get());
  if (PyErr_Occurred() != nullptr) throw host::Error::fetch();
  return static_cast<std::uint32_t>(bits);
}

Reference raise_status(PyObject* self, const Arguments& arguments) {
  PyObject* const label = arguments[1];
  const std::uint32_t status = bits_of(arguments[0]);
  const auto signed_status = static_cast<std::int32_t>(status);
  if (signed_status >= 0) return Reference::acquire(Py_None);
  switch (status) {
    case native::kSTATUS_OBJECT_NAME_NOT_FOUND:
    case native::kSTATUS_OBJECT_PATH_NOT_FOUND:
    case native::kSTATUS_DELETE_PENDING:
      throw host::Error(PyExc_FileNotFoundError, Reference::acquire(label));
    case native::kSTATUS_OBJECT_NAME_COLLISION:
      throw host::Error(PyExc_FileExistsError, Reference::acquire(label));
    default:
      break;
  }
  const Reference error = native_of(self).call("_rtl_nt_status_to_dos_error",
                                               {host::integer(std::int64_t{signed_status}).get()});
  throw host::Error::raised(
      host::call(Reference::acquire(PyExc_OSError), error,
                 host::text("Windows handle-relative operation failed: ", label)));
}

}  // namespace

constinit const Operation kRaiseStatus = Operation::of<kSignature, &raise_status>();

}  // namespace client_manifest::windows
