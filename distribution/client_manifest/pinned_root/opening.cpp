// Opens a contained leaf as a file of the host's: the parent is closed before the caller has the
// file, and the file is a regular one by its descriptor, not by its name.
#include "pinned_root/opening.h"

#include "documents/relative_path.h"
#include "host/handling.h"
#include "host/message.h"
#include "host/value.h"
#include "pinned_root/file_object.h"
#include "pinned_root/instance.h"
#include "pinned_root/leaf.h"
#include "system/file_names.h"

namespace client_manifest::pinned_root {
namespace {

using host::Arguments;
using host::Error;
using host::Kind;
using host::Operation;
using host::Pass;
using host::Reference;
using system::OwnedDescriptor;

// The file object on a leaf that has proved itself. What keeps it from being made counts as a
// failure to open the leaf.
template <class Make>
Reference handed_over(OwnedDescriptor& file, Make&& make, const LeafWords& words,
                      const Subject& subject) {
  try {
    return make(file);
  } catch (Error& error) {
    const host::Handling handling(error);
    file.close();
    throw translated(std::move(error), words.failed, subject);
  }
}

constexpr host::Signature kReadSignature{
    .name = "open_regular_file_for_read",
    .kind = Kind::method,
    .parameters = {{{"relative_path"}, {"label", Pass::by_keyword}}},
    .documentation = "Open one contained regular file for streaming descriptor-pinned reads.",
};

Reference open_regular_file_for_read(PyObject* self, const Arguments& arguments) {
  const Reference safe_path = documents::bound::validate_manifest_relative_path(arguments[0]);
  const Subject subject{.label = arguments[1], .path = safe_path.get()};
  Parent parent = through(self).open_parent(subject.path, subject.label, Py_False);
  return host::guaranteed(
      [&] {
        const auto name = system::FileNames::one(parent.name.get());
        OwnedDescriptor file = in_words(
            [&] { return open_leaf_for_read(parent.descriptor.get(), name.last(), subject); });
        return handed_over(file, &buffered_reader, words_for_reading(), subject);
      },
      [&] { parent.descriptor.close(); });
}

constexpr host::Signature kUpdateSignature{
    .name = "open_regular_file_for_update",
    .kind = Kind::method,
    .parameters = {{{"relative_path"}, {"create", Pass::by_keyword}}},
    .documentation = "Open one contained regular file for descriptor-pinned binary update.",
};

// A missing leaf has no words of its own here, as it has where a file is opened for reading.
LeafWords words_for_update() {
  return {.not_regular = {PyExc_ValueError, "contained update file must be regular: "},
          .failed =
              any_failure({PyExc_ValueError, "contained update file is a symlink or is unsafe: "})};
}

Reference open_regular_file_for_update(PyObject* self, const Arguments& arguments) {
  const Reference safe_path = documents::bound::validate_manifest_relative_path(arguments[0]);
  const Subject subject{.path = safe_path.get()};
  Parent parent = through(self).open_parent(subject.path, "contained update file", arguments[1]);
  return host::guaranteed(
      [&] {
        const bool create = host::is_true(arguments[1]);
        const auto name = system::FileNames::one(parent.name.get());
        const auto open = [&] {
          return system::open_for_update_at(parent.descriptor.get(), name.last(), create);
        };
        OwnedDescriptor file =
            in_words([&] { return open_regular_leaf(open, words_for_update(), subject); });
        return handed_over(file, &buffered_random, words_for_update(), subject);
      },
      [&] { parent.descriptor.close(); });
}

}  // namespace

constinit const Operation kOpenRegularFileForRead =
    Operation::of<kReadSignature, &open_regular_file_for_read>();
constinit const Operation kOpenRegularFileForUpdate =
    Operation::of<kUpdateSignature, &open_regular_file_for_update>();

}  // namespace client_manifest::pinned_root
