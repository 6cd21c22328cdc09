// Asks what an open object is: by its handle, never by its name.
#include "host/message.h"
#include "host/value.h"
#include "windows/handle_operations.h"
#include "windows/native_interface.h"

namespace client_manifest::windows {
namespace {

using host::Arguments;
using host::attribute;
using host::Kind;
using host::Operation;
using host::Reference;
using host::take;

constexpr host::Signature kIdentitySignature{
    .name = "identity",
    .kind = Kind::method,
    .parameters = {{{"handle"}}},
};

// Volume serial and 128-bit file id. There is nothing to fall back on: a volume that cannot answer
// cannot be pinned.
Reference identity(PyObject* self, const Arguments& arguments) {
  const NativeInterface native = native_of(self);
  const Reference info = native.record("_FileIdInfo");
  native.call_or_raise(
      "_get_file_information_ex",
      {native.handle(arguments[0]).get(), number(native::kFILE_ID_INFO_CLASS).get(),
       native.address_of(info).get(), native.size_of(info).get()});
  const Reference serial = attribute(info.get(), "VolumeSerialNumber");
  const Reference file_id = attribute(attribute(info.get(), "FileId").get(), "Identifier");
  return take(PyTuple_Pack(2, serial.get(), take(PyBytes_FromObject(file_id.get())).get()));
}

constexpr host::Signature kAttributesSignature{
    .name = "_attributes",
    .kind = Kind::method,
    .parameters = {{{"handle"}}},
};

Reference attributes(PyObject* self, const Arguments& arguments) {
  const NativeInterface native = native_of(self);
  const Reference info = native.record("_ByHandleFileInformation");
  native.call_or_raise("_get_file_information",
                       {native.handle(arguments[0]).get(), native.address_of(info).get()});
  return attribute(info.get(), "dwFileAttributes");
}

bool has_attribute(PyObject* self, PyObject* handle, std::uint32_t wanted) {
  const Reference found = host::invoke(self, "_attributes", {handle});
  return host::is_true(take(PyNumber_And(found.get(), number(wanted).get())).get());
}

constexpr host::Signature kKindSignature{
    .name = "kind",
    .kind = Kind::method,
    .parameters = {{{"handle"}}},
};

Reference kind(PyObject* self, const Arguments& arguments) {
  return host::text(has_attribute(self, arguments[0], native::kFILE_ATTRIBUTE_DIRECTORY)
                        ? "directory"
                        : "regular");
}

constexpr host::Signature kIsReparseSignature{
    .name = "is_reparse",
    .kind = Kind::method,
    .parameters = {{{"handle"}}},
};

Reference is_reparse(PyObject* self, const Arguments& arguments) {
  return host::truth(has_attribute(self, arguments[0], native::kFILE_ATTRIBUTE_REPARSE_POINT));
}

}  // namespace

constinit const Operation kIdentity = Operation::of<kIdentitySignature, &identity>();
constinit const Operation kAttributes = Operation::of<kAttributesSignature, &attributes>();
constinit const Operation kKind = Operation::of<kKindSignature, &kind>();
constinit const Operation kIsReparse = Operation::of<kIsReparseSignature, &is_reparse>();

}  // namespace client_manifest::windows
