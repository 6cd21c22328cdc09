// Turns handles into descriptors of the C runtime: for a stat that the host computes, and for file
// objects. A handle ends exactly once: with the descriptor that took it over, or here.
#include "host/handling.h"
#include "host/message.h"
#include "host/value.h"
#include "windows/handle_operations.h"

namespace client_manifest::windows {
namespace {

using host::Arguments;
using host::attribute;
using host::Error;
using host::invoke;
using host::Kind;
using host::Operation;
using host::Reference;
using host::take;

Reference host_os() { return global(names().os); }

Reference open_flags(const char* access) {
  const Reference os = host_os();
  const Reference binary = attribute(os.get(), "O_BINARY");
  return take(PyNumber_Or(binary.get(), attribute(os.get(), access).get()));
}

// The descriptor that owns `handle` from then on; where there is none, the handle has been closed.
template <class Flags>
Reference descriptor_of(PyObject* self, PyObject* handle, Flags&& flags) {
  try {
    const Reference msvcrt = take(PyImport_ImportModule("msvcrt"));
    return invoke(msvcrt.get(), "open_osfhandle", {handle, flags().get()});
  } catch (const Error& error) {
    if (!error.matches(PyExc_Exception)) throw;
    const host::Handling handling(error);
    static_cast<void>(invoke(self, "close", {handle}));
    throw;
  }
}

void close_descriptor(const Reference& descriptor) {
  static_cast<void>(invoke(host_os().get(), "close", {descriptor.get()}));
}

constexpr host::Signature kStatSignature{
    .name = "stat",
    .kind = Kind::method,
    .parameters = {{{"handle"}}},
};

Reference stat(PyObject* self, const Arguments& arguments) {
  const Reference duplicated = invoke(self, "duplicate", {arguments[0]});
  const Reference descriptor =
      descriptor_of(self, duplicated.get(), [] { return open_flags("O_RDONLY"); });
  return host::guaranteed([&] { return invoke(host_os().get(), "fstat", {descriptor.get()}); },
                          [&] { close_descriptor(descriptor); });
}

constexpr host::Signature kFileObjectSignature{
    .name = "file_object",
    .kind = Kind::method,
    .parameters = {{{"handle"}, {"mode"}}},
};

Reference file_object(PyObject* self, const Arguments& arguments) {
  PyObject* const mode = arguments[1];
  const auto flags = [&] {
    return open_flags(host::contains(mode, host::text("+").get()) ? "O_RDWR" : "O_RDONLY");
  };
  const Reference descriptor = descriptor_of(self, arguments[0], flags);
  try {
    return invoke(host_os().get(), "fdopen", {descriptor.get(), mode});
  } catch (const Error& error) {
    if (!error.matches(PyExc_Exception)) throw;
    const host::Handling handling(error);
    close_descriptor(descriptor);
    throw;
  }
}

}  // namespace

constinit const Operation kStat = Operation::of<kStatSignature, &stat>();
constinit const Operation kFileObject = Operation::of<kFileObjectSignature, &file_object>();

}  // namespace client_manifest::windows
