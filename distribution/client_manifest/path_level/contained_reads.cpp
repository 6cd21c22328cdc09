// A missing root is a failure in each of them, also where a missing file is none.
#include "path_level/contained_reads.h"

#include "host/value.h"
#include "path_level/one_shot.h"
#include "pinned_root/chunk_size.h"

namespace client_manifest::path_level {
namespace {

using host::Arguments;
using host::Operation;
using host::Parameter;
using host::Pass;
using host::Reference;

constexpr Parameter kLabel{"label", Pass::by_keyword};
using pinned_root::kChunkBytesParameter;

// The operations that take nothing but a path and a label.
Reference labelled(const Arguments& arguments, PyObject* operation) {
  return one_shot(pin(arguments[0]), [&](PyObject* pinned) {
    return host::call_method_with_keywords(pinned, operation, keywords().label, arguments[1],
                                           arguments[2]);
  });
}

constexpr host::Signature kReadSignature{
    .name = "read_contained_regular_file",
    .parameters = {{{"root"}, {"relative_path"}, kLabel}},
};

Reference read_contained_regular_file(PyObject* /*module*/, const Arguments& arguments) {
  return labelled(arguments, names().read_regular_file);
}

constexpr host::Signature kReadIfPresentSignature{
    .name = "read_contained_regular_file_if_present",
    .parameters = {{{"root"}, {"relative_path"}, kLabel}},
};

Reference read_contained_regular_file_if_present(PyObject* /*module*/, const Arguments& arguments) {
  return labelled(arguments, names().read_regular_file_if_present);
}

constexpr host::Signature kStatSignature{
    .name = "stat_contained_regular_file",
    .parameters = {{{"root"}, {"relative_path"}, kLabel}},
};

Reference stat_contained_regular_file(PyObject* /*module*/, const Arguments& arguments) {
  return labelled(arguments, names().stat_regular_file);
}

constexpr host::Signature kIdentifySignature{
    .name = "identify_contained_regular_file",
    .parameters = {{{"root"}, {"relative_path"}, kLabel, kChunkBytesParameter}},
};

Reference identify_contained_regular_file(PyObject* /*module*/, const Arguments& arguments) {
  const Reference chunk_bytes = pinned_root::chunk_bytes_or_default(arguments[3]);
  return one_shot(pin(arguments[0]), [&](PyObject* pinned) {
    return host::call_method_with_keywords(pinned, names().hash_regular_file,
                                           keywords().label_chunk_bytes, arguments[1], arguments[2],
                                           chunk_bytes);
  });
}

constexpr host::Signature kHashSignature{
    .name = "hash_contained_regular_file",
    .parameters = {{{"root"}, {"relative_path"}, kLabel, kChunkBytesParameter}},
};

// Pins nothing itself.
Reference hash_contained_regular_file(PyObject* /*module*/, const Arguments& arguments) {
  const Reference identity = host::call_with_keywords(
      global(names().identify_contained_regular_file), keywords().label_chunk_bytes, arguments[0],
      arguments[1], arguments[2], pinned_root::chunk_bytes_or_default(arguments[3]));
  return host::attribute(identity.get(), names().sha256);
}

}  // namespace

constinit const Operation kReadContainedRegularFile =
    Operation::of<kReadSignature, &read_contained_regular_file>();
constinit const Operation kReadContainedRegularFileIfPresent =
    Operation::of<kReadIfPresentSignature, &read_contained_regular_file_if_present>();
constinit const Operation kStatContainedRegularFile =
    Operation::of<kStatSignature, &stat_contained_regular_file>();
constinit const Operation kIdentifyContainedRegularFile =
    Operation::of<kIdentifySignature, &identify_contained_regular_file>();
constinit const Operation kHashContainedRegularFile =
    Operation::of<kHashSignature, &hash_contained_regular_file>();

}  // namespace client_manifest::path_level
