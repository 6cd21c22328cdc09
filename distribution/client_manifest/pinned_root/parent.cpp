// The walk starts from a duplicate of the pinned descriptor, which itself is never walked with.
#include "pinned_root/parent.h"

#include "host/value.h"
#include "pinned_root/instance.h"
#include "pinned_root/walk.h"

namespace client_manifest::pinned_root {
namespace {

using host::Arguments;
using host::Operation;
using host::Pass;
using host::Reference;
using host::take;

constexpr host::Signature kSignature{
    .name = "_open_parent",
    .kind = host::Kind::method,
    .parameters = {{{"relative_path"}, {"label", Pass::by_keyword}, {"create", Pass::by_keyword}}},
};

Reference last_segment(PyObject* relative_path) {
  const Py_ssize_t length = PyUnicode_GET_LENGTH(relative_path);
  const Py_ssize_t slash = PyUnicode_FindChar(relative_path, '/', 0, length, -1);
  return take(PyUnicode_Substring(relative_path, slash + 1, length));
}

Reference open_parent(PyObject* self, const Arguments& arguments) {
  const Subject subject{.label = arguments[1], .path = arguments[0]};
  const auto segments = system::FileNames::split(subject.path);
  const Reference name = last_segment(subject.path);
  const int pinned = through(self).require_descriptor();
  const bool create = host::is_true(arguments[2]);
  system::OwnedDescriptor parent =
      in_words([&] { return walk_to_parent(pinned, segments, create, subject); });
  const Reference number = take(PyLong_FromLong(parent.get()));
  Reference result = take(PyTuple_Pack(2, number.get(), name.get()));
  static_cast<void>(parent.release());
  return result;
}

}  // namespace

constinit const Operation kOpenParent = Operation::of<kSignature, &open_parent>();

}  // namespace client_manifest::pinned_root
