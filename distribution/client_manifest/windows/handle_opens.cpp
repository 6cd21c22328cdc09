// Opens the volume, and single children of open directories. A link is never followed: the open
// carries a flag by which the system opens the link itself, for the caller to refuse.
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
using host::raise;
using host::Reference;
using host::take;

constexpr std::uint32_t kAttributeAccess = native::kFILE_READ_ATTRIBUTES | native::kSYNCHRONIZE;
constexpr std::uint32_t kDirectoryAccess =
    native::kFILE_LIST_DIRECTORY | native::kFILE_TRAVERSE | kAttributeAccess;

constexpr host::Signature kShareSignature{.name = "_share_access", .kind = Kind::property};

// Nothing that is opened here keeps anybody from anything: the proofs stand against a changing
// tree.
Reference share_access(PyObject* /*self*/, const Arguments& /*arguments*/) {
  return number(native::kFILE_SHARE_READ | native::kFILE_SHARE_WRITE | native::kFILE_SHARE_DELETE);
}

constexpr host::Signature kVolumeSignature{
    .name = "open_volume",
    .kind = Kind::method,
    .parameters = {{{"volume_path"}}},
};

Reference open_volume(PyObject* self, const Arguments& arguments) {
  const NativeInterface native = native_of(self);
  // Before the call: once there is a handle, nothing may come between it and the caller.
  const Reference minus_one = host::integer(std::int64_t{-1});
  const Reference all_ones =
      host::attribute(invoke(native.ctypes().get(), "c_void_p", {minus_one.get()}).get(), "value");
  const Reference handle = native.call(
      "_create_file",
      {arguments[0], number(kDirectoryAccess).get(), host::attribute(self, "_share_access").get(),
       Py_None, number(native::kOPEN_EXISTING).get(),
       number(native::kFILE_FLAG_BACKUP_SEMANTICS | native::kFILE_FLAG_OPEN_REPARSE_POINT).get(),
       Py_None});
  if (host::equal(value_or_self(handle.get()).get(), all_ones.get())) native.raise_last_error();
  return native.handle_value(handle.get());
}

// What a relative open is asked for.
struct Wanted {
  std::uint32_t access;
  std::uint32_t disposition;
  std::uint32_t options;
};

Reference open_relative_through(PyObject* self, PyObject* parent, PyObject* name,
                                const Wanted& wanted) {
  return invoke(self, "_open_relative", {parent, name},
                {{"desired_access", number(wanted.access).get()},
                 {"disposition", number(wanted.disposition).get()},
                 {"options", number(wanted.options).get()}});
}

std::uint32_t delete_access_if(PyObject* wanted) {
  return wanted != nullptr && host::is_true(wanted) ? native::kDELETE : 0;
}

constexpr host::Signature kDirectorySignature{
    .name = "open_directory",
    .kind = Kind::method,
    .parameters = {{{"parent"},
                    {"name"},
                    {"create", Pass::by_keyword},
                    {"delete", Pass::by_keyword, "False"}}},
};

Reference open_directory(PyObject* self, const Arguments& arguments) {
  const std::uint32_t access = kDirectoryAccess | delete_access_if(arguments[3]);
  return open_relative_through(
      self, arguments[0], arguments[1],
      {.access = access,
       .disposition = host::is_true(arguments[2]) ? native::kFILE_OPEN_IF : native::kFILE_OPEN,
       .options = native::kFILE_DIRECTORY_FILE});
}

constexpr host::Signature kRegularSignature{
    .name = "open_regular",
    .kind = Kind::method,
    .parameters = {{{"parent"},
                    {"name"},
                    {"writable", Pass::by_keyword},
                    {"create", Pass::by_keyword},
                    {"exclusive", Pass::by_keyword, "False"},
                    {"delete", Pass::by_keyword, "False"}}},
};

Reference open_regular(PyObject* self, const Arguments& arguments) {
  std::uint32_t access = native::kFILE_READ_DATA | kAttributeAccess;
  if (host::is_true(arguments[2])) {
    access |= native::kFILE_WRITE_DATA | native::kFILE_APPEND_DATA;
  }
  access |= delete_access_if(arguments[5]);
  std::uint32_t disposition = native::kFILE_OPEN;
  if (host::is_true(arguments[3])) {
    const bool exclusive = arguments[4] != nullptr && host::is_true(arguments[4]);
    disposition = exclusive ? native::kFILE_CREATE : native::kFILE_OPEN_IF;
  }
  return open_relative_through(
      self, arguments[0], arguments[1],
      {.access = access, .disposition = disposition, .options = native::kFILE_NON_DIRECTORY_FILE});
}

constexpr host::Signature kEntrySignature{
    .name = "open_entry",
    .kind = Kind::method,
    .parameters = {{{"parent"}, {"name"}, {"delete", Pass::by_keyword}}},
};

// Opens a child whatever it is: as a directory first, and if that fails as anything else. One that
// is missing stays missing.
Reference open_entry(PyObject* self, const Arguments& arguments) {
  const std::uint32_t delete_access = delete_access_if(arguments[2]);
  try {
    return open_relative_through(self, arguments[0], arguments[1],
                                 {.access = kDirectoryAccess | delete_access,
                                  .disposition = native::kFILE_OPEN,
                                  .options = native::kFILE_DIRECTORY_FILE});
  } catch (const host::Error& error) {
    if (!error.matches(PyExc_OSError) || error.matches(PyExc_FileNotFoundError)) throw;
    // Dropped: the second attempt is no handling of the first.
  }
  return open_relative_through(self, arguments[0], arguments[1],
                               {.access = kAttributeAccess | delete_access,
                                .disposition = native::kFILE_OPEN,
                                .options = native::kFILE_NON_DIRECTORY_FILE});
}

bool is_one_segment(PyObject* name) {
  const Reference nul = take(PyUnicode_FromStringAndSize("\0", 1));
  return host::is_true(name) && !host::contains(name, host::text("\\").get()) &&
         !host::contains(name, host::text("/").get()) && !host::contains(name, nul.get());
}

constexpr host::Signature kRelativeSignature{
    .name = "_open_relative",
    .kind = Kind::method,
    .parameters = {{{"parent"},
                    {"name"},
                    {"desired_access", Pass::by_keyword},
                    {"disposition", Pass::by_keyword},
                    {"options", Pass::by_keyword}}},
};

// The name as the system takes it, and what keeps its memory alive.
struct NativeName {
  Reference characters;  // NUL-terminated
  Reference record;      // _UnicodeString
};

NativeName native_name(const NativeInterface& native, PyObject* name) {
  const Reference ctypes = native.ctypes();
  NativeName made;
  made.characters = invoke(ctypes.get(), "create_unicode_buffer", {name});
  const Reference encoded = invoke(name, "encode", {host::text("utf-16-le").get()});
  const Py_ssize_t length = PyObject_Size(encoded.get());
  if (length < 0) throw host::Error::fetch();
  const Reference buffer =
      invoke(ctypes.get(), "cast", {made.characters.get(), native.type("LPWSTR").get()});
  made.record =
      native.record("_UnicodeString", {take(PyLong_FromSsize_t(length)).get(),
                                       take(PyLong_FromSsize_t(length + 2)).get(), buffer.get()});
  return made;
}

Reference open_relative(PyObject* self, const Arguments& arguments) {
  PyObject* const name = arguments[1];
  if (!is_one_segment(name)) {
    raise(PyExc_ValueError, "Windows handle-relative child name must be one segment");
  }
  const NativeInterface native = native_of(self);
  const Reference ctypes = native.ctypes();
  const NativeName unicode_name = native_name(native, name);
  const Reference attributes_type = host::attribute(self, "_ObjectAttributes");
  const Reference attributes =
      native.record("_ObjectAttributes",
                    {native.size_of(attributes_type).get(), native.handle(arguments[0]).get(),
                     invoke(ctypes.get(), "pointer", {unicode_name.record.get()}).get(),
                     number(native::kOBJ_CASE_INSENSITIVE).get(), Py_None, Py_None});
  const Reference handle = native.simple("HANDLE");
  const Reference status_block = native.record("_IoStatusBlock");
  const Reference options = take(PyNumber_Or(
      arguments[4],
      number(native::kFILE_OPEN_REPARSE_POINT | native::kFILE_SYNCHRONOUS_IO_NONALERT).get()));
  const Reference status = native.call(
      "_nt_create_file",
      {native.address_of(handle).get(), arguments[2], native.address_of(attributes).get(),
       native.address_of(status_block).get(), Py_None, number(native::kFILE_ATTRIBUTE_NORMAL).get(),
       host::attribute(self, "_share_access").get(), arguments[3], options.get(), Py_None,
       number(0).get()});
  native.raise_status(status, name);
  return native.handle_value(handle.get());
}

}  // namespace

constinit const Operation kShareAccess = Operation::of<kShareSignature, &share_access>();
constinit const Operation kOpenVolume = Operation::of<kVolumeSignature, &open_volume>();
constinit const Operation kOpenDirectory = Operation::of<kDirectorySignature, &open_directory>();
constinit const Operation kOpenRegular = Operation::of<kRegularSignature, &open_regular>();
constinit const Operation kOpenEntry = Operation::of<kEntrySignature, &open_entry>();
constinit const Operation kOpenRelative = Operation::of<kRelativeSignature, &open_relative>();

}  // namespace client_manifest::windows
