// Opens a contained leaf for streaming reads: the parent is closed before the caller has the file,
// and the file is a regular one by its descriptor, not by its name.
#include "documents/relative_path.h"
#include "host/handling.h"
#include "host/message.h"
#include "pinned_root/instance.h"
#include "pinned_root/leaf.h"
#include "pinned_root/reading.h"
#include "system/file_names.h"

namespace client_manifest::pinned_root {
namespace {

using host::Arguments;
using host::Error;
using host::Operation;
using host::Pass;
using host::Reference;
using host::take;
using system::OwnedDescriptor;

constexpr host::Signature kSignature{
    .name = "open_regular_file_for_read",
    .kind = host::Kind::method,
    .parameters = {{{"relative_path"}, {"label", Pass::by_keyword}}},
    .documentation = "Open one contained regular file for streaming descriptor-pinned reads.",
};

// A buffered reader on `raw`, as the host's `open` makes one.
Reference buffered(const Reference& io, const Reference& raw) {
  try {
    const Reference block_size = take(PyObject_GetAttrString(raw.get(), "_blksize"));
    return take(PyObject_CallMethod(io.get(), "BufferedReader", "OO", raw.get(), block_size.get()));
  } catch (const Error& error) {
    const host::Handling handling(error);
    static_cast<void>(host::call_method(raw.get(), names().close));
    throw;
  }
}

// The host's buffered reader, which owns the descriptor from then on. It is made in two steps, so
// that it is known at each of them who has to close the descriptor when memory runs out.
Reference buffered_reader(OwnedDescriptor& file, const Subject& subject) {
  try {
    const Reference io = take(PyImport_ImportModule("io"));
    const Reference raw = take(PyObject_CallMethod(io.get(), "FileIO", "is", file.get(), "rb"));
    static_cast<void>(file.release());
    return buffered(io, raw);
  } catch (const Error& error) {
    const host::Handling handling(error);
    file.close();
    if (!error.matches(PyExc_OSError) || error.matches(PyExc_FileNotFoundError)) throw;
    const Wording unreadable = unreadable_leaf().other;
    host::raise_from(error, unreadable.kind, subject.label, unreadable.words, subject.path);
  }
}

Reference open_regular_file_for_read(PyObject* self, const Arguments& arguments) {
  const Reference safe_path = documents::bound::validate_manifest_relative_path(arguments[0]);
  const Subject subject{.label = arguments[1], .path = safe_path.get()};
  Parent parent = through(self).open_parent(subject.path, subject.label, /*create=*/false);
  return host::guaranteed(
      [&] {
        const auto name = system::FileNames::one(parent.name.get());
        OwnedDescriptor file = in_words(
            [&] { return open_leaf_for_read(parent.descriptor.get(), name.at(0), subject); });
        return buffered_reader(file, subject);
      },
      [&] { parent.descriptor.close(); });
}

}  // namespace

constinit const Operation kOpenRegularFileForRead =
    Operation::of<kSignature, &open_regular_file_for_read>();

}  // namespace client_manifest::pinned_root
