// The choice is made once, at load, from the host's name for the platform.
#include "frame/class_choice.h"

#include "host/value.h"

namespace client_manifest::frame {
namespace {

using host::Arguments;
using host::Operation;
using host::Pass;
using host::Reference;

constexpr host::Signature kSignature{
    .name = "_pinned_root_class",
    .parameters = {{{"platform_name", Pass::anyhow, "None"}}},
};

Reference pinned_root_class(PyObject* /*module*/, const Arguments& arguments) {
  PyObject* const platform_name = arguments.get(0, Py_None);
  const Reference selected = platform_name == Py_None
                                 ? host::attribute(global(names().os).get(), names().name)
                                 : Reference::acquire(platform_name);
  const Reference windows = host::take(PyUnicode_FromString("nt"));
  return global(host::equal(selected.get(), windows.get()) ? names().windows_pinned_root
                                                           : names().posix_pinned_root);
}

}  // namespace

constinit const Operation kPinnedRootClass = Operation::of<kSignature, &pinned_root_class>();

}  // namespace client_manifest::frame
