// The buffer is the fixed record, rounded up, and the whole name behind it: it always ends in four
// zero bytes, which count in the length that the kernel is given and not in that of the name.
#include "windows/rename_buffer.h"

#include "host/message.h"
#include "host/plain_class.h"
#include "host/value.h"

namespace client_manifest::windows {
namespace {

using host::Arguments;
using host::Operation;
using host::Pass;
using host::raise;
using host::Reference;
using host::take;

constexpr std::int64_t kUlongSize = 4;
constexpr std::int64_t kWcharSize = 2;
constexpr std::int64_t kLargestUlong = 0xFFFFFFFF;

std::int64_t align(std::int64_t value, std::int64_t alignment) {
  return (value + alignment - 1) & ~(alignment - 1);
}

bool is_below(PyObject* left, PyObject* right) {
  return host::is_true(take(PyObject_RichCompare(left, right, Py_LT)).get());
}

std::int64_t exact(PyObject* value) {
  const Reference index = take(PyNumber_Index(value));
  const long long number = PyLong_AsLongLong(index.get());
  if (number == -1 && PyErr_Occurred() != nullptr) throw host::Error::fetch();
  return number;
}

std::int64_t valid_pointer_size(PyObject* pointer_size) {
  if (!host::equal(pointer_size, host::integer(std::int64_t{4}).get()) &&
      !host::equal(pointer_size, host::integer(std::int64_t{8}).get())) {
    raise(PyExc_ValueError, "Windows pointer size must be 4 or 8 bytes");
  }
  return exact(pointer_size);
}

std::int64_t valid_name_length(PyObject* file_name_length) {
  if (host::is_below_zero(file_name_length) ||
      is_below(host::integer(kLargestUlong).get(), file_name_length)) {
    raise(PyExc_ValueError, "Windows rename file-name length does not fit ULONG");
  }
  const std::int64_t length = exact(file_name_length);
  if (length % kWcharSize != 0) {
    raise(PyExc_ValueError, "Windows rename file-name bytes must contain complete WCHARs");
  }
  return length;
}

constexpr host::Signature kLayoutSignature{
    .name = "_windows_file_rename_information_layout",
    .parameters = {{{"pointer_size"}, {"file_name_length"}}},
};

Reference rename_layout(PyObject* /*module*/, const Arguments& arguments) {
  const std::int64_t pointer_size = valid_pointer_size(arguments[0]);
  const std::int64_t file_name_length = valid_name_length(arguments[1]);

  const std::int64_t root_directory_offset = align(kUlongSize, pointer_size);
  const std::int64_t file_name_length_offset = root_directory_offset + pointer_size;
  const std::int64_t file_name_offset = file_name_length_offset + kUlongSize;
  const std::int64_t structure_size = align(file_name_offset + kWcharSize, pointer_size);
  return host::call(global(names().rename_layout_class), host::integer(root_directory_offset),
                    host::integer(file_name_length_offset), host::integer(file_name_offset),
                    host::integer(pointer_size), host::integer(structure_size),
                    host::integer(structure_size + file_name_length));
}

// `0 <= handle < (1 << (pointer_size * 8))`; the size has not been judged yet.
bool fits_pointer(PyObject* handle, PyObject* pointer_size) {
  if (host::is_below_zero(handle)) return false;
  const Reference one = host::integer(std::int64_t{1});
  const Reference bits =
      take(PyNumber_Multiply(pointer_size, host::integer(std::int64_t{8}).get()));
  return is_below(handle, take(PyNumber_Lshift(one.get(), bits.get())).get());
}

Reference little_endian(PyObject* value, PyObject* size) {
  return host::invoke(value, "to_bytes", {size, host::text("little").get()});
}

// `buffer[start:start + size] = bytes`
void put(const Reference& buffer, const Reference& layout, const char* offset, PyObject* bytes,
         std::int64_t size) {
  const std::int64_t start = exact(host::attribute(layout.get(), offset).get());
  host::check(PySequence_SetSlice(buffer.get(), start, start + size, bytes));
}

constexpr host::Signature kBytesSignature{
    .name = "_windows_file_rename_information_bytes",
    .parameters = {{{"destination_parent"},
                    {"encoded_name"},
                    {"replace", Pass::by_keyword},
                    {"pointer_size", Pass::by_keyword}}},
};

Reference rename_bytes(PyObject* /*module*/, const Arguments& arguments) {
  PyObject* const destination_parent = arguments[0];
  PyObject* const encoded_name = arguments[1];
  PyObject* const pointer_size = arguments[3];
  if (PyBytes_Check(encoded_name) == 0) {
    raise(PyExc_TypeError, "Windows rename file-name bytes must be bytes");
  }
  if (!fits_pointer(destination_parent, pointer_size)) {
    raise(PyExc_ValueError, "Windows destination directory handle does not fit a pointer");
  }
  const Reference name_length = host::integer(std::int64_t{PyBytes_GET_SIZE(encoded_name)});
  const Reference layout =
      host::call(global(names().rename_layout_function), pointer_size, name_length);

  auto* const kind = reinterpret_cast<PyObject*>(&PyByteArray_Type);
  const Reference buffer =
      host::call(Reference::acquire(kind), host::attribute(layout.get(), "buffer_size"));
  const bool replace = host::is_true(arguments[2]);
  const Reference flag = host::integer(std::int64_t{replace ? 1 : 0});
  host::check(PySequence_SetItem(buffer.get(), 0, flag.get()));
  const Reference handle = little_endian(destination_parent, pointer_size);
  put(buffer, layout, "root_directory_offset", handle.get(), exact(pointer_size));
  put(buffer, layout, "file_name_length_offset",
      little_endian(name_length.get(), host::integer(kUlongSize).get()).get(), kUlongSize);
  put(buffer, layout, "file_name_offset", encoded_name, exact(name_length.get()));
  return take(PyBytes_FromObject(buffer.get()));
}

}  // namespace

Reference make_rename_layout_class(PyObject* dataclass, PyObject* module_name) {
  return host::frozen_record({.name = "_WindowsFileRenameInformationLayout",
                              .documentation = nullptr,
                              .module_name = module_name},
                             dataclass,
                             {{"root_directory_offset", "int"},
                              {"file_name_length_offset", "int"},
                              {"file_name_offset", "int"},
                              {"structure_alignment", "int"},
                              {"structure_size", "int"},
                              {"buffer_size", "int"}},
                             {});
}

constinit const Operation kWindowsFileRenameInformationLayout =
    Operation::of<kLayoutSignature, &rename_layout>();
constinit const Operation kWindowsFileRenameInformationBytes =
    Operation::of<kBytesSignature, &rename_bytes>();

}  // namespace client_manifest::windows
