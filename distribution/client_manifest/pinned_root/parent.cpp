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

Reference body(PyObject* self, const Arguments& arguments) {
  const Subject subject{.label = arguments[1], .path = arguments[0]};
  Parent parent = open_parent(self, subject, arguments[2]);
  const Reference number = take(PyLong_FromLong(parent.descriptor.get()));
  Reference result = take(PyTuple_Pack(2, number.get(), parent.name.get()));
  static_cast<void>(parent.descriptor.release());
  return result;
}

}  // namespace

Parent open_parent(PyObject* self, const Subject& subject, PyObject* create) {
  const auto segments = system::FileNames::split(subject.path);
  Reference name = last_segment(subject.path);
  const int pinned = through(self).require_descriptor();
  const bool creates = segments.size() > 1 && host::is_true(create);
  return {in_words([&] { return walk_to_parent(pinned, segments, creates, subject); }),
          std::move(name)};
}

constinit const Operation kOpenParent = Operation::of<kSignature, &body>();

}  // namespace client_manifest::pinned_root
