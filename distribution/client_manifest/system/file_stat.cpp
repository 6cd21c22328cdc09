// Builds the host's `os.stat_result`, field for field as the host's own stat functions fill it.
#include "system/file_stat.h"

#include <array>

#include "host/call.h"
#include "host/value.h"

namespace client_manifest::system {
namespace {

using host::Reference;
using host::take;

PyObject* stat_result_type = nullptr;  // lives as long as the process

constexpr std::int64_t kNanosecondsInASecond = 1'000'000'000;

Reference seconds_as_float(const Timestamp& time) {
  return take(PyFloat_FromDouble(static_cast<double>(time.seconds) +
                                 1e-9 * static_cast<double>(time.nanoseconds)));
}

void put(const Reference& fields, const char* name, const Reference& value) {
  host::check(PyDict_SetItemString(fields.get(), name, value.get()));
}

// The host shows the number that stands for no user and no group as -1.
Reference owner(std::uint64_t id) {
  return id == UINT32_MAX ? host::integer(std::int64_t{-1}) : host::integer(id);
}

}  // namespace

void record_stat_result_type() {
  const Reference os = take(PyImport_ImportModule("os"));
  stat_result_type = take(PyObject_GetAttrString(os.get(), "stat_result")).release();
}

Reference nanoseconds(const Timestamp& time) {
  constexpr std::int64_t most = INT64_MAX / kNanosecondsInASecond - 1;
  if (time.seconds >= -most && time.seconds <= most) {
    return host::integer(time.seconds * kNanosecondsInASecond + time.nanoseconds);
  }
  const Reference seconds = host::integer(time.seconds);
  const Reference in_a_second = host::integer(kNanosecondsInASecond);
  const Reference whole = take(PyNumber_Multiply(seconds.get(), in_a_second.get()));
  return take(PyNumber_Add(whole.get(), host::integer(time.nanoseconds).get()));
}

Reference stat_result(const FileStat& stat) {
  // The sequence has whole seconds in its last three places; the named fields have the rest.
  std::array<Reference, 10> values{
      host::integer(stat.mode),
      host::integer(stat.inode),
      host::integer(stat.device),
      host::integer(stat.links),
      owner(stat.user),
      owner(stat.group),
      host::integer(stat.size),
      host::integer(stat.accessed.seconds),
      host::integer(stat.modified.seconds),
      host::integer(stat.changed.seconds),
  };
  const Reference sequence = take(PyTuple_New(static_cast<Py_ssize_t>(values.size())));
  for (std::size_t i = 0; i < values.size(); ++i) {
    PyTuple_SET_ITEM(sequence.get(), static_cast<Py_ssize_t>(i), values[i].release());
  }
  const Reference named = take(PyDict_New());
  put(named, "st_atime", seconds_as_float(stat.accessed));
  put(named, "st_mtime", seconds_as_float(stat.modified));
  put(named, "st_ctime", seconds_as_float(stat.changed));
  put(named, "st_atime_ns", nanoseconds(stat.accessed));
  put(named, "st_mtime_ns", nanoseconds(stat.modified));
  put(named, "st_ctime_ns", nanoseconds(stat.changed));
  put(named, "st_blksize", host::integer(stat.block_size));
  put(named, "st_blocks", host::integer(stat.blocks));
  put(named, "st_rdev", host::integer(stat.special_device));
#ifdef _WIN32
  put(named, "st_file_attributes", host::integer(stat.attributes));
  put(named, "st_reparse_tag", host::integer(stat.reparse_tag));
#endif
  return host::call(Reference::acquire(stat_result_type), sequence, named);
}

}  // namespace client_manifest::system
