// A file object is made in two steps, so that it is known at each of them who has to close the
// descriptor when memory runs out.
#include "pinned_root/file_object.h"

#include "host/handling.h"

namespace client_manifest::pinned_root {
namespace {

using host::Reference;
using host::take;
using system::OwnedDescriptor;

Reference buffered(const Reference& io, const char* kind, const Reference& raw) {
  try {
    const Reference block_size = take(PyObject_GetAttrString(raw.get(), "_blksize"));
    return take(PyObject_CallMethod(io.get(), kind, "OO", raw.get(), block_size.get()));
  } catch (const host::Error& error) {
    const host::Handling handling(error);
    static_cast<void>(host::call_method(raw.get(), names().close));
    throw;
  }
}

Reference file_object(OwnedDescriptor& file, const char* kind, const char* mode) {
  const Reference io = take(PyImport_ImportModule("io"));
  const Reference raw = take(PyObject_CallMethod(io.get(), "FileIO", "is", file.get(), mode));
  static_cast<void>(file.release());
  return buffered(io, kind, raw);
}

}  // namespace

Reference buffered_reader(OwnedDescriptor& file) {
  return file_object(file, "BufferedReader", "rb");
}

Reference buffered_random(OwnedDescriptor& file) {
  return file_object(file, "BufferedRandom", "rb+");
}

}  // namespace client_manifest::pinned_root
