// Splits the path of a root into the volume, where every walk begins, and the segments below it.
//
// Pure text: the host's Windows path rules are the same on every platform.
#include "host/message.h"
#include "host/value.h"
#include "windows/handle_operations.h"

namespace client_manifest::windows {
namespace {

using host::Arguments;
using host::invoke;
using host::Operation;
using host::Reference;
using host::take;

constexpr host::Signature kSignature{
    .name = "split_root_path",
    .kind = host::Kind::static_method,
    .parameters = {{{"path"}}},
};

[[noreturn]] void refuse_root() {
  host::raise(PyExc_ValueError,
              "secure Windows pinned roots require a local drive path; UNC roots are unsupported");
}

bool starts_with(PyObject* text, const char* beginning) {
  return host::is_true(invoke(text, "startswith", {host::text(beginning).get()}).get());
}

// The path without the prefix by which the system takes it as it stands.
Reference without_verbatim_prefix(Reference candidate) {
  constexpr const char* prefix = R"(\\?\)";
  if (!starts_with(candidate.get(), prefix)) return candidate;
  Reference rest = invoke(candidate.get(), "removeprefix", {host::text(prefix).get()});
  if (starts_with(invoke(rest.get(), "upper", {}).get(), R"(UNC\)")) refuse_root();
  return rest;
}

// The segments of the tail, without empty ones.
Reference components_of(PyObject* tail) {
  const Reference backslash = host::text("\\");
  const Reference uniform = invoke(tail, "replace", {host::text("/").get(), backslash.get()});
  const Reference pieces = invoke(uniform.get(), "split", {backslash.get()});
  const Reference components = take(PyList_New(0));
  host::for_each(pieces.get(), [&](PyObject* piece) {
    if (host::is_true(piece)) host::check(PyList_Append(components.get(), piece));
  });
  return take(PyList_AsTuple(components.get()));
}

Reference split_root_path(PyObject* /*type*/, const Arguments& arguments) {
  const Reference candidate = without_verbatim_prefix(
      host::call_method(global(names().os).get(), names().fspath, arguments[0]));
  const Reference ntpath = take(PyImport_ImportModule("ntpath"));
  const Reference absolute = invoke(ntpath.get(), "abspath", {candidate.get()});
  const host::Pair split =
      host::unpack_pair(invoke(ntpath.get(), "splitdrive", {absolute.get()}).get());
  PyObject* const drive = split.first.get();
  if (!host::is_true(drive) || starts_with(drive, R"(\\)") ||
      host::check(static_cast<int>(PyObject_Size(drive))) != 2) {
    refuse_root();
  }
  const Reference volume_path = host::text(R"(\\?\)", drive, "\\");
  return take(PyTuple_Pack(2, volume_path.get(), components_of(split.second.get()).get()));
}

}  // namespace

constinit const Operation kSplitRootPath = Operation::of<kSignature, &split_root_path>();

}  // namespace client_manifest::windows
