// Renames and deletes by handle: what was opened and proved is what is acted on.
#include "host/message.h"
#include "host/value.h"
#include "windows/handle_operations.h"
#include "windows/native_interface.h"

namespace client_manifest::windows {
namespace {

using host::Arguments;
using host::invoke;
using host::Kind;
using host::Operation;
using host::Pass;
using host::Reference;

constexpr host::Signature kRenameSignature{
    .name = "rename",
    .kind = Kind::method,
    .parameters =
        {{{"source"}, {"destination_parent"}, {"destination_name"}, {"replace", Pass::by_keyword}}},
};

// A NUL is refused by an open, and not here.
bool is_one_child_segment(PyObject* name) {
  return host::is_true(name) && !host::contains(name, host::text("\\").get()) &&
         !host::contains(name, host::text("/").get());
}

void set_information(const NativeInterface& native, PyObject* handle, const Reference& information,
                     const Reference& size, std::uint32_t information_class, PyObject* label) {
  const Reference status_block = native.record("_IoStatusBlock");
  const Reference status =
      native.call("_nt_set_information_file",
                  {native.handle(handle).get(), native.address_of(status_block).get(),
                   information.get(), size.get(), number(information_class).get()});
  native.raise_status(status, label);
}

Reference rename(PyObject* self, const Arguments& arguments) {
  PyObject* const destination_name = arguments[2];
  if (!is_one_child_segment(destination_name)) {
    host::raise(PyExc_ValueError, "Windows rename destination must be one child segment");
  }
  const NativeInterface native = native_of(self);
  const Reference encoded_name =
      invoke(destination_name, "encode", {host::text("utf-16-le").get()});
  const Reference pointer_size = native.size_of(native.type("HANDLE"));
  const Reference payload = host::call_with_keywords(global(names().rename_bytes_function),
                                                     keywords().replace_pointer_size, arguments[1],
                                                     encoded_name, arguments[3], pointer_size);
  const Reference buffer = native.buffer_of(payload.get());
  const Reference size = native.size_of(buffer);
  set_information(native, arguments[0], buffer, size, native::kFILE_RENAME_INFORMATION_CLASS,
                  destination_name);
  return Reference::acquire(Py_None);
}

constexpr host::Signature kDeleteSignature{
    .name = "delete",
    .kind = Kind::method,
    .parameters = {{{"handle"}}},
};

// The object goes when its last handle is closed; until then its name reads as missing.
Reference delete_(PyObject* self, const Arguments& arguments) {
  const NativeInterface native = native_of(self);
  const Reference one = number(1);
  const Reference flag = invoke(native.ctypes().get(), "c_ubyte", {one.get()});
  const Reference address = native.address_of(flag);
  const Reference size = native.size_of(flag);
  set_information(native, arguments[0], address, size, native::kFILE_DISPOSITION_INFORMATION_CLASS,
                  host::text("delete by handle").get());
  return Reference::acquire(Py_None);
}

}  // namespace

constinit const Operation kRename = Operation::of<kRenameSignature, &rename>();
constinit const Operation kDelete = Operation::of<kDeleteSignature, &delete_>();

}  // namespace client_manifest::windows
