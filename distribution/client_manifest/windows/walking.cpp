// Walks by handle, one segment at a time. An open does not fail because a link is there: it opens
// the link itself, and the proof of each opened directory refuses it.
#include "host/message.h"
#include "host/value.h"
#include "windows/root.h"
#include "windows/root_operations.h"

namespace client_manifest::windows {
namespace {

using host::Arguments;
using host::Error;
using host::Kind;
using host::Operation;
using host::Pass;
using host::raise_from;
using host::Reference;
using host::take;

constexpr host::Signature kAbsoluteSignature{
    .name = "_open_absolute_directory",
    .kind = Kind::method,
    .parameters = {{{"_path"}, {"create", Pass::by_keyword}}},
};

// From the volume down, by what the root was split into. No failure is translated.
Reference open_absolute_directory(PyObject* self, const Arguments& arguments) {
  const Root root(self);
  const Reference volume_path = root.get(names()._volume_path);
  OwnedHandle current = root.boundary().open_volume(volume_path.get());
  closed_on_failure(current, [&] {
    root.require_safe_directory(current, volume_path.get());
    host::for_each(root.get(names()._root_components).get(), [&](PyObject* component) {
      OwnedHandle following = root.boundary().open_directory(current, component, arguments[1]);
      closed_on_failure(following, [&] {
        const Reference shown = take(PyObject_Str(root.get(names().path).get()));
        root.require_safe_directory(following, shown.get());
      });
      current.close();
      current = std::move(following);
    });
  });
  return current.release();
}

// What becomes of a segment that does not open.
struct SegmentWords {
  const char* missing;
  const char* other;
};

struct Segment {
  PyObject* name;
  PyObject* create;
  PyObject* label;
  PyObject* shown;  // the path in messages
};

OwnedHandle open_segment(const Root& root, const OwnedHandle& current, const Segment& segment,
                         const SegmentWords& words) {
  OwnedHandle following;
  try {
    following = root.boundary().open_directory(current, segment.name, segment.create);
    root.require_safe_directory(following, segment.shown);
    return following;
  } catch (const Error& error) {
    const host::Handling handling(error);
    following.close();
    if (error.matches(PyExc_FileNotFoundError)) {
      raise_from(error, PyExc_FileNotFoundError, segment.label, words.missing, segment.shown);
    }
    if (error.matches(PyExc_OSError)) {
      raise_from(error, PyExc_ValueError, segment.label, words.other, segment.shown);
    }
    throw;
  }
}

constexpr host::Signature kComponentsSignature{
    .name = "_open_directory_components",
    .kind = Kind::method,
    .parameters = {{{"anchor_handle"}, {"components"}, {"label", Pass::by_keyword}}},
};

Reference open_directory_components(PyObject* self, const Arguments& arguments) {
  const Root root(self);
  const SegmentWords words{.missing = " is missing: ",
                           .other = " has a reparse or non-directory segment: "};
  OwnedHandle current = root.boundary().duplicate(arguments[0]);
  closed_on_failure(current, [&] {
    const Reference joined = host::joined("/", arguments[1]);
    host::for_each(arguments[1], [&](PyObject* component) {
      const Segment segment{
          .name = component, .create = Py_False, .label = arguments[2], .shown = joined.get()};
      OwnedHandle following = open_segment(root, current, segment, words);
      current.close();
      current = std::move(following);
    });
  });
  return current.release();
}

constexpr host::Signature kParentSignature{
    .name = "_open_parent",
    .kind = Kind::method,
    .parameters = {{{"relative_path"}, {"label", Pass::by_keyword}, {"create", Pass::by_keyword}}},
};

Reference open_parent(PyObject* self, const Arguments& arguments) {
  PyObject* const relative_path = arguments[0];
  const Root root(self);
  const SegmentWords words{.missing = " has a missing parent: ",
                           .other = " has a non-directory or reparse parent: "};
  const Reference slash = host::text("/");
  const Reference parts = take(PyUnicode_Split(relative_path, slash.get(), -1));
  const Py_ssize_t last = PyList_GET_SIZE(parts.get()) - 1;
  OwnedHandle current = root.boundary().duplicate(root.require_descriptor().get());
  closed_on_failure(current, [&] {
    for (Py_ssize_t i = 0; i < last; ++i) {
      const Segment segment{.name = PyList_GET_ITEM(parts.get(), i),
                            .create = arguments[2],
                            .label = arguments[1],
                            .shown = relative_path};
      OwnedHandle following = open_segment(root, current, segment, words);
      current.close();
      current = std::move(following);
    }
  });
  Reference result = take(PyTuple_New(2));
  PyTuple_SET_ITEM(result.get(), 1, Py_NewRef(PyList_GET_ITEM(parts.get(), last)));
  PyTuple_SET_ITEM(result.get(), 0, current.release().release());
  return result;
}

constexpr host::Signature kRequireSignature{.name = "_require_descriptor", .kind = Kind::method};

Reference require_descriptor(PyObject* self, const Arguments& /*arguments*/) {
  Reference descriptor = Root(self).get(names()._descriptor);
  if (descriptor.get() == Py_None) host::raise(PyExc_RuntimeError, "pinned root is closed");
  return descriptor;
}

}  // namespace

constinit const Operation kWindowsOpenAbsoluteDirectory =
    Operation::of<kAbsoluteSignature, &open_absolute_directory>();
constinit const Operation kWindowsOpenDirectoryComponents =
    Operation::of<kComponentsSignature, &open_directory_components>();
constinit const Operation kWindowsOpenParent = Operation::of<kParentSignature, &open_parent>();
constinit const Operation kWindowsRequireDescriptor =
    Operation::of<kRequireSignature, &require_descriptor>();

}  // namespace client_manifest::windows
