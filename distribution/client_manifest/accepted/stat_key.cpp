// Reduces a stat result of any host type to its key.
#include "accepted/stat_key.h"

#include <array>

#include "host/message.h"
#include "host/value.h"

namespace client_manifest::accepted {
namespace {

using host::Arguments;
using host::Operation;
using host::Reference;
using host::take;

constexpr std::int64_t kNanosecondsInASecond = 1'000'000'000;

// `int(value)`.
Reference as_integer(const Reference& value) { return take(PyNumber_Long(value.get())); }

// `getattr(object, name, fallback)`.
Reference attribute_or(PyObject* object, PyObject* name, PyObject* fallback) {
  PyObject* const found = PyObject_GetAttr(object, name);
  if (found != nullptr) return Reference::steal(found);
  host::Error failure = host::Error::fetch();
  if (!failure.matches(PyExc_AttributeError)) throw host::Error(std::move(failure));
  return Reference::acquire(fallback);
}

Reference call_stat_nanoseconds(PyObject* file_stat, PyObject* field) {
  return call_bound(names()._stat_nanoseconds, kStatNanoseconds, &stat_nanoseconds, nullptr,
                    file_stat, field);
}

}  // namespace

Reference stat_nanoseconds(PyObject* file_stat, PyObject* field) {
  const Reference exact_name = host::text(field, "_ns");
  const Reference exact = attribute_or(file_stat, exact_name.get(), Py_None);
  if (exact.get() != Py_None) return as_integer(exact);
  const Reference seconds = host::attribute(file_stat, field);
  const Reference in_a_second = host::integer(kNanosecondsInASecond);
  return as_integer(take(PyNumber_Multiply(seconds.get(), in_a_second.get())));
}

Reference regular_file_stat_key(PyObject* file_stat) {
  const Reference zero = host::integer(std::int64_t{0});
  std::array<Reference, 5> key;
  key[0] = as_integer(host::attribute(file_stat, names().st_size));
  key[1] = as_integer(call_stat_nanoseconds(file_stat, names().modification_time));
  key[2] = as_integer(call_stat_nanoseconds(file_stat, names().change_time));
  key[3] = as_integer(attribute_or(file_stat, names().st_dev, zero.get()));
  key[4] = as_integer(attribute_or(file_stat, names().st_ino, zero.get()));
  return take(
      PyTuple_Pack(5, key[0].get(), key[1].get(), key[2].get(), key[3].get(), key[4].get()));
}

namespace bound {

bool has_own_stat_key() {
  return kRegularFileStatKey.is(global(names()._regular_file_stat_key).get()) &&
         kStatNanoseconds.is(global(names()._stat_nanoseconds).get());
}

Reference regular_file_stat_key(PyObject* file_stat) {
  return call_bound(names()._regular_file_stat_key, kRegularFileStatKey,
                    &accepted::regular_file_stat_key, nullptr, file_stat);
}

bool stat_keys_differ(const system::FileStat& one, const system::FileStat& other) {
  if (has_own_stat_key()) return !system::same_key(one, other);
  return stat_keys_differ(one, system::stat_result(other).get());
}

bool stat_keys_differ(const system::FileStat& one, PyObject* other) {
  const Reference one_key = regular_file_stat_key(system::stat_result(one).get());
  return host::differ(one_key.get(), regular_file_stat_key(other).get());
}

}  // namespace bound

namespace {

constexpr host::Signature kNanosecondsSignature{
    .name = "_stat_nanoseconds",
    .parameters = {{{"file_stat"}, {"field"}}},
};
Reference nanoseconds_body(PyObject* /*module*/, const Arguments& arguments) {
  return stat_nanoseconds(arguments[0], arguments[1]);
}

constexpr host::Signature kKeySignature{
    .name = "_regular_file_stat_key",
    .parameters = {{{"file_stat"}}},
};
Reference key_body(PyObject* /*module*/, const Arguments& arguments) {
  return regular_file_stat_key(arguments[0]);
}

}  // namespace

constinit const Operation kStatNanoseconds =
    Operation::of<kNanosecondsSignature, &nanoseconds_body>();
constinit const Operation kRegularFileStatKey = Operation::of<kKeySignature, &key_body>();

}  // namespace client_manifest::accepted
