// Lists a directory by its handle, in batches of records that the system packs into one buffer.
#include <string_view>

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

constexpr std::uint32_t kBatchBytes = 65536;
constexpr std::size_t kNameLengthOffset = 8;
constexpr std::size_t kNameOffset = 12;

constexpr host::Signature kSignature{
    .name = "list_names",
    .kind = host::Kind::method,
    .parameters = {{{"handle"}}},
};

std::uint32_t little_endian_at(std::string_view bytes, std::size_t offset) {
  std::uint32_t value = 0;
  for (std::size_t i = 4; i-- > 0;) {
    const std::size_t place = offset + i;
    const auto byte = place < bytes.size() ? static_cast<unsigned char>(bytes[place]) : 0U;
    value = (value << 8U) | byte;
  }
  return value;
}

bool is_dot_or_dots(PyObject* name) {
  return PyUnicode_CompareWithASCIIString(name, ".") == 0 ||
         PyUnicode_CompareWithASCIIString(name, "..") == 0;
}

// Appends the names of one batch, of which the first `used` bytes hold records.
void append_names(const Reference& names, std::string_view batch, std::uint64_t used) {
  std::uint64_t offset = 0;
  while (offset < used) {
    const std::uint32_t next = little_endian_at(batch, offset);
    const std::uint32_t length = little_endian_at(batch, offset + kNameLengthOffset);
    // What would lie behind the buffer is not there: as a slice, the name ends with it.
    const std::string_view bytes =
        offset + kNameOffset < batch.size() ? batch.substr(offset + kNameOffset, length) : "";
    int byte_order = -1;
    const Reference name = take(PyUnicode_DecodeUTF16(
        bytes.data(), static_cast<Py_ssize_t>(bytes.size()), "strict", &byte_order));
    if (!is_dot_or_dots(name.get())) host::check(PyList_Append(names.get(), name.get()));
    if (next == 0) return;
    offset += next;
  }
}

bool is_end(const Reference& status) {
  const Reference unsigned_status = take(PyNumber_And(status.get(), number(0xFFFFFFFF).get()));
  return host::equal(unsigned_status.get(), number(native::kSTATUS_NO_MORE_FILES).get());
}

Reference list_names(PyObject* self, const Arguments& arguments) {
  const NativeInterface native = native_of(self);
  const Reference names = take(PyList_New(0));
  PyObject* restart = Py_True;
  for (;;) {
    const Reference buffer = native.zeroed_buffer(kBatchBytes);
    const Reference status_block = native.record("_IoStatusBlock");
    const Reference status = native.call(
        "_nt_query_directory_file",
        {native.handle(arguments[0]).get(), Py_None, Py_None, Py_None,
         native.address_of(status_block).get(), buffer.get(), number(kBatchBytes).get(),
         number(native::kFILE_NAMES_INFORMATION_CLASS).get(), Py_False, Py_None, restart});
    if (is_end(status)) return take(PyList_AsTuple(names.get()));
    native.raise_status(status, host::text("directory enumeration").get());
    const Reference information = host::attribute(status_block.get(), "Information");
    const std::uint64_t used = PyLong_AsUnsignedLongLong(information.get());
    if (PyErr_Occurred() != nullptr) throw host::Error::fetch();
    const Reference raw = take(PyBytes_FromObject(host::attribute(buffer.get(), "raw").get()));
    append_names(
        names,
        {PyBytes_AS_STRING(raw.get()), static_cast<std::size_t>(PyBytes_GET_SIZE(raw.get()))},
        used);
    restart = Py_False;
  }
}

}  // namespace

constinit const Operation kListNames = Operation::of<kSignature, &list_names>();

}  // namespace client_manifest::windows
