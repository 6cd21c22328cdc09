// The constructor of the boundary: loads the system's libraries, declares their records with the
// platform's natural layout, and binds the calls with their types.
//
// The host's foreign-function modules are brought in here and not at load: a platform that never
// builds a boundary never pays for them.
#include "host/message.h"
#include "host/value.h"
#include "windows/handle_operations.h"

namespace client_manifest::windows {
namespace {

using host::Arguments;
using host::attribute;
using host::invoke;
using host::Operation;
using host::Reference;
using host::take;

void set(PyObject* self, const char* name, const Reference& value) {
  host::check(PyObject_SetAttrString(self, name, value.get()));
}

struct Field {
  const char* name;
  Reference type;
};

Reference array_of(const Reference& type, std::int64_t length) {
  return take(PyNumber_Multiply(type.get(), host::integer(length).get()));
}

// The types that records and calls are declared with.
class Types {
 public:
  Types(const Reference& ctypes, const Reference& wintypes)
      : ctypes_(ctypes.get()), wintypes_(wintypes.get()) {}

  [[nodiscard]] Reference win(const char* name) const { return attribute(wintypes_, name); }
  [[nodiscard]] Reference c(const char* name) const { return attribute(ctypes_, name); }
  [[nodiscard]] Reference pointer_to(const Reference& type) const {
    return invoke(ctypes_, "POINTER", {type.get()});
  }

  // `class name(ctypes.Structure)` with these fields.
  template <std::size_t count>
  [[nodiscard]] Reference record(const char* name, const Field (&fields)[count]) const {
    const Reference list = take(PyList_New(0));
    for (const Field& field : fields) {
      const Reference pair = take(Py_BuildValue("(sO)", field.name, field.type.get()));
      host::check(PyList_Append(list.get(), pair.get()));
    }
    const Reference structure = c("Structure");
    return take(PyObject_CallFunction(reinterpret_cast<PyObject*>(&PyType_Type), "s(O){sOss}", name,
                                      structure.get(), "_fields_", list.get(), "__module__",
                                      kModuleName));
  }

 private:
  PyObject* ctypes_;
  PyObject* wintypes_;
};

void require_windows() {
  const Reference platform = attribute(global(names().os).get(), names().name);
  if (host::differ(platform.get(), host::text("nt").get())) {
    host::raise(PyExc_NotImplementedError,
                "the native Windows pinned-root boundary is available only on Windows");
  }
}

void declare_records(PyObject* self, const Types& types) {
  const Reference unicode_string =
      types.record("_UnicodeString", {{"Length", types.win("USHORT")},
                                      {"MaximumLength", types.win("USHORT")},
                                      {"Buffer", types.win("LPWSTR")}});
  set(self, "_UnicodeString", unicode_string);
  set(self, "_ObjectAttributes",
      types.record("_ObjectAttributes", {{"Length", types.win("ULONG")},
                                         {"RootDirectory", types.win("HANDLE")},
                                         {"ObjectName", types.pointer_to(unicode_string)},
                                         {"Attributes", types.win("ULONG")},
                                         {"SecurityDescriptor", types.win("LPVOID")},
                                         {"SecurityQualityOfService", types.win("LPVOID")}}));
  set(self, "_IoStatusBlock",
      types.record("_IoStatusBlock",
                   {{"Status", types.c("c_ssize_t")}, {"Information", types.c("c_size_t")}}));
  set(self, "_FileIdInfo",
      types.record("_FileIdInfo",
                   {{"VolumeSerialNumber", types.c("c_uint64")},
                    {"FileId", types.record("_FileId128",
                                            {{"Identifier", array_of(types.c("c_ubyte"), 16)}})}}));
  set(self, "_ByHandleFileInformation",
      types.record("_ByHandleFileInformation", {{"dwFileAttributes", types.win("DWORD")},
                                                {"ftCreationTime", types.win("FILETIME")},
                                                {"ftLastAccessTime", types.win("FILETIME")},
                                                {"ftLastWriteTime", types.win("FILETIME")},
                                                {"dwVolumeSerialNumber", types.win("DWORD")},
                                                {"nFileSizeHigh", types.win("DWORD")},
                                                {"nFileSizeLow", types.win("DWORD")},
                                                {"nNumberOfLinks", types.win("DWORD")},
                                                {"nFileIndexHigh", types.win("DWORD")},
                                                {"nFileIndexLow", types.win("DWORD")}}));
}

// Binds calls of one library under the boundary's own names.
class Library {
 public:
  Library(PyObject* self, Reference library) : self_(self), library_(std::move(library)) {}

  void bind(const char* name, const char* call, const Reference& result) const {
    const Reference function = attribute(library_.get(), call);
    set(function.get(), "restype", result);
    set(self_, name, function);
  }

  template <std::size_t count>
  void bind(const char* name, const char* call, const Reference (&arguments)[count],
            const Reference& result) const {
    const Reference types = take(PyList_New(0));
    for (const Reference& type : arguments) host::check(PyList_Append(types.get(), type.get()));
    const Reference function = attribute(library_.get(), call);
    set(function.get(), "argtypes", types);
    set(function.get(), "restype", result);
    set(self_, name, function);
  }

 private:
  PyObject* self_;
  Reference library_;
};

void bind_kernel32(PyObject* self, const Library& kernel32, const Types& types) {
  const auto dword = [&] { return types.win("DWORD"); };
  const auto handle = [&] { return types.win("HANDLE"); };
  const auto boolean = [&] { return types.win("BOOL"); };
  const auto lpvoid = [&] { return types.win("LPVOID"); };
  kernel32.bind("_create_file", "CreateFileW",
                {types.win("LPCWSTR"), dword(), dword(), lpvoid(), dword(), dword(), handle()},
                handle());
  kernel32.bind("_close_handle", "CloseHandle", {handle()}, boolean());
  kernel32.bind(
      "_duplicate_handle", "DuplicateHandle",
      {handle(), handle(), handle(), types.pointer_to(handle()), dword(), boolean(), dword()},
      boolean());
  kernel32.bind("_current_process", "GetCurrentProcess", handle());
  kernel32.bind("_get_file_information", "GetFileInformationByHandle",
                {handle(), types.pointer_to(attribute(self, "_ByHandleFileInformation"))},
                boolean());
  kernel32.bind("_get_file_information_ex", "GetFileInformationByHandleEx",
                {handle(), types.c("c_int32"), lpvoid(), dword()}, boolean());
}

void bind_ntdll(PyObject* self, const Library& ntdll, const Types& types) {
  const auto ulong = [&] { return types.win("ULONG"); };
  const auto handle = [&] { return types.win("HANDLE"); };
  const auto boolean = [&] { return types.win("BOOL"); };
  const auto pointer = [&] { return types.c("c_void_p"); };
  const auto status = [&] { return types.c("c_int32"); };
  const auto status_block = [&] { return types.pointer_to(attribute(self, "_IoStatusBlock")); };
  ntdll.bind("_nt_create_file", "NtCreateFile",
             {types.pointer_to(handle()), types.win("DWORD"),
              types.pointer_to(attribute(self, "_ObjectAttributes")), status_block(), pointer(),
              ulong(), ulong(), ulong(), ulong(), pointer(), ulong()},
             status());
  ntdll.bind("_nt_query_directory_file", "NtQueryDirectoryFile",
             {handle(), handle(), pointer(), pointer(), status_block(), types.win("LPVOID"),
              ulong(), ulong(), boolean(), pointer(), boolean()},
             status());
  ntdll.bind("_nt_set_information_file", "NtSetInformationFile",
             {handle(), status_block(), types.win("LPVOID"), ulong(), ulong()}, status());
  ntdll.bind("_rtl_nt_status_to_dos_error", "RtlNtStatusToDosError", {status()}, ulong());
}

constexpr host::Signature kSignature{.name = "__init__", .kind = host::Kind::method};

Reference init(PyObject* self, const Arguments& /*arguments*/) {
  require_windows();
  const Reference ctypes = take(PyImport_ImportModule("ctypes"));
  const Reference wintypes = take(PyImport_ImportModule("ctypes.wintypes"));
  set(self, "_ctypes", ctypes);
  set(self, "_wintypes", wintypes);
  const Reference kernel32 =
      invoke(ctypes.get(), "WinDLL", {host::text("kernel32").get()}, {{"use_last_error", Py_True}});
  const Reference ntdll = invoke(ctypes.get(), "WinDLL", {host::text("ntdll").get()});
  set(self, "_kernel32", kernel32);
  set(self, "_ntdll", ntdll);

  const Types types(ctypes, wintypes);
  declare_records(self, types);
  bind_kernel32(self, Library(self, Reference::acquire(kernel32.get())), types);
  bind_ntdll(self, Library(self, Reference::acquire(ntdll.get())), types);
  return Reference::acquire(Py_None);
}

}  // namespace

constinit const Operation kNativeInit = Operation::of<kSignature, &init>();

}  // namespace client_manifest::windows
