// Reading and writing judge the leaf before anything is pinned. Hashing pins the parent first, so
// that a bad leaf beneath a missing parent is reported as a missing parent.
#include "path_level/whole_paths.h"

#include "documents/relative_path.h"
#include "host/value.h"
#include "path_level/one_shot.h"
#include "pinned_root/absolute_path.h"
#include "pinned_root/chunk_size.h"

namespace client_manifest::path_level {
namespace {

using documents::bound::validate_manifest_relative_path;
using host::Arguments;
using host::Operation;
using host::Pass;
using host::Reference;

Reference parent_of(const Reference& absolute) {
  return host::attribute(absolute.get(), names().parent);
}

Reference valid_leaf_of(const Reference& absolute) {
  return validate_manifest_relative_path(host::attribute(absolute.get(), names().name).get());
}

constexpr host::Signature kReadSignature{
    .name = "read_regular_file_path",
    .parameters = {{{"path"}, {"label", Pass::by_keyword}}},
};

Reference read_regular_file_path(PyObject* /*module*/, const Arguments& arguments) {
  const Reference absolute = pinned_root::absolute_path(arguments[0]);
  const Reference leaf = valid_leaf_of(absolute);
  const Reference read = global(names().read_contained_regular_file);
  return host::call_with_keywords(read, keywords().label, parent_of(absolute), leaf, arguments[1]);
}

constexpr host::Signature kWriteSignature{
    .name = "write_regular_file_path",
    .parameters = {{{"path"}, {"payload"}, {"allow_replace", Pass::by_keyword, "True"}}},
};

Reference write_regular_file_path(PyObject* /*module*/, const Arguments& arguments) {
  const Reference absolute = pinned_root::absolute_path(arguments[0]);
  const Reference leaf = valid_leaf_of(absolute);
  const Reference write = global(names().write_contained_regular_file);
  return host::call_with_keywords(write, keywords().allow_replace, parent_of(absolute), leaf,
                                  arguments[1], arguments.get(2, Py_True));
}

constexpr host::Signature kHashSignature{
    .name = "hash_regular_file_path",
    .parameters = {{{"path"}, {"label", Pass::by_keyword}, pinned_root::kChunkBytesParameter}},
};

Reference hash_regular_file_path(PyObject* /*module*/, const Arguments& arguments) {
  const Reference chunk_bytes = pinned_root::chunk_bytes_or_default(arguments[2]);
  const Reference absolute = pinned_root::absolute_path(arguments[0]);
  const Reference parent = parent_of(absolute);
  return host::with(pin(parent.get()).get(), [&](PyObject* pinned) {
    const Reference leaf = valid_leaf_of(absolute);
    const Reference identity = host::call_method_with_keywords(pinned, names().hash_regular_file,
                                                               keywords().label_chunk_bytes, leaf,
                                                               arguments[1], chunk_bytes);
    prove(pinned);
    return host::attribute(identity.get(), names().sha256);
  });
}

}  // namespace

constinit const Operation kReadRegularFilePath =
    Operation::of<kReadSignature, &read_regular_file_path>();
constinit const Operation kWriteRegularFilePath =
    Operation::of<kWriteSignature, &write_regular_file_path>();
constinit const Operation kHashRegularFilePath =
    Operation::of<kHashSignature, &hash_regular_file_path>();

}  // namespace client_manifest::path_level
