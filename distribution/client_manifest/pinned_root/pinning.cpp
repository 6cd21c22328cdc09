// The pin is the last thing that an initialiser sets, so that a root that failed to pin owns
// nothing.
#include "pinned_root/pinning.h"

#include "host/message.h"
#include "host/value.h"
#include "pinned_root/absolute_path.h"
#include "pinned_root/instance.h"
#include "pinned_root/walk.h"

namespace client_manifest::pinned_root {
namespace {

using host::Arguments;
using host::Kind;
using host::Operation;
using host::Pass;
using host::raise;
using host::Reference;
using host::take;
using system::FileNames;
using system::OwnedDescriptor;

void require_posix() {
  const Reference os = global(names().os);
  const Reference platform = host::attribute(os.get(), names().name);
  const Reference posix = take(PyUnicode_FromString("posix"));
  if (!host::equal(platform.get(), posix.get()) ||
      PyObject_HasAttr(os.get(), names().no_follow) == 0) {
    raise(PyExc_NotImplementedError,
          "secure descriptor-relative SDK filesystem I/O requires POSIX O_NOFOLLOW support");
  }
}

constexpr host::Signature kInitSignature{
    .name = "__init__",
    .kind = Kind::method,
    .parameters = {{{"root"}, {"create", Pass::by_keyword, "False"}}},
};

Reference init(PyObject* self, const Arguments& arguments) {
  PyObject* const create = arguments.get(1, Py_False);
  const Instance root = through(self);
  require_posix();
  const Reference path = absolute_path(arguments[0]);
  root.set(names().path, path.get());
  root.set(names()._anchor_descriptor, Py_None);
  root.set(names()._anchor_components, take(PyTuple_New(0)).get());
  root.set(names()._contained_root_label, Py_None);
  // What the operation gives is kept as it is: a subclass may pin by other numbers.
  const Reference descriptor = host::call_method_with_keywords(
      self, names()._open_absolute_directory, keywords().create, path, create);
  root.set(names()._descriptor, descriptor.get());
  return Reference::acquire(Py_None);
}

// The number of a descriptor that is the caller's from now on.
Reference handed_over(OwnedDescriptor opened) {
  Reference number = take(PyLong_FromLong(opened.get()));
  static_cast<void>(opened.release());
  return number;
}

constexpr host::Signature kAbsoluteSignature{
    .name = "_open_absolute_directory",
    .kind = Kind::class_method,
    .parameters = {{{"cls"}, {"path"}, {"create", Pass::by_keyword}}},
};

Reference open_absolute_directory(PyObject* /*owner*/, const Arguments& arguments) {
  const Reference parts =
      take(PySequence_Tuple(host::attribute(arguments[1], names().parts).get()));
  const FileNames below_top = FileNames::of(parts.get(), 1);
  const bool create = below_top.size() > 0 && host::is_true(arguments[2]);
  return handed_over(in_words([&] { return walk_from_top(below_top, create); }));
}

constexpr host::Signature kComponentsSignature{
    .name = "_open_directory_components",
    .kind = Kind::static_method,
    .parameters = {{{"anchor_descriptor"}, {"components"}, {"label", Pass::by_keyword}}},
};

Reference open_directory_components(PyObject* /*type*/, const Arguments& arguments) {
  const int anchor = host::as_int(arguments[0]);
  const Reference components = take(PySequence_Tuple(arguments[1]));
  const FileNames below_anchor = FileNames::of(components.get());
  const Subject subject{.label = arguments[2], .components = components.get()};
  return handed_over(in_words([&] { return walk_from_anchor(anchor, below_anchor, subject); }));
}

constexpr host::Signature kRequireSignature{.name = "_require_descriptor", .kind = Kind::method};

Reference require_descriptor_body(PyObject* self, const Arguments& /*arguments*/) {
  return require_descriptor(self);
}

}  // namespace

Reference require_descriptor(PyObject* self) {
  Reference descriptor = through(self).get(names()._descriptor);
  if (descriptor.get() == Py_None) raise(PyExc_RuntimeError, "pinned root is closed");
  return descriptor;
}

constinit const Operation kInit = Operation::of<kInitSignature, &init>();
constinit const Operation kOpenAbsoluteDirectory =
    Operation::of<kAbsoluteSignature, &open_absolute_directory>();
constinit const Operation kOpenDirectoryComponents =
    Operation::of<kComponentsSignature, &open_directory_components>();
constinit const Operation kRequireDescriptor =
    Operation::of<kRequireSignature, &require_descriptor_body>();

}  // namespace client_manifest::pinned_root
