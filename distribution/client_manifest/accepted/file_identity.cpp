// Makes ContainedFileIdentity records and reads them back into stat keys.
#include "accepted/file_identity.h"

#include "host/value.h"

namespace client_manifest::accepted {
namespace {

using host::Arguments;
using host::attribute;
using host::Operation;
using host::Reference;
using host::take;

PyObject* own_class = nullptr;  // both live as long as the process
PyObject* own_stat_key = nullptr;

}  // namespace

void record_own_file_identity() {
  own_class = global(names().ContainedFileIdentity).release();
  own_stat_key = attribute(own_class, names().stat_key).release();
}

bool has_own_file_identity() {
  return global(names().ContainedFileIdentity).get() == own_class &&
         attribute(own_class, names().stat_key).get() == own_stat_key;
}

Reference FileIdentity::size_bytes() const {
  return record_ ? attribute(record_.get(), names().size_bytes) : host::integer(stat_.size);
}

Reference FileIdentity::sha256() const {
  return record_ ? attribute(record_.get(), names().sha256) : Reference::acquire(sha256_.get());
}

Reference FileIdentity::record() const {
  if (record_) return Reference::acquire(record_.get());
  const Reference kind = global(names().ContainedFileIdentity);
  return host::call_with_keywords(kind, keywords().file_identity_fields, host::integer(stat_.size),
                                  sha256_, host::integer(stat_.device), host::integer(stat_.inode),
                                  system::nanoseconds(stat_.modified),
                                  system::nanoseconds(stat_.changed));
}

Reference make_file_identity(PyObject* stat_key, const Reference& sha256) {
  const Reference key = take(PySequence_Tuple(stat_key));
  if (PyTuple_GET_SIZE(key.get()) != 5) {
    PyErr_SetString(PyExc_ValueError, PyTuple_GET_SIZE(key.get()) < 5
                                          ? "not enough values to unpack (expected 5)"
                                          : "too many values to unpack (expected 5)");
    throw host::Error::fetch();
  }
  const auto field = [&](Py_ssize_t place) { return PyTuple_GET_ITEM(key.get(), place); };
  const Reference kind = global(names().ContainedFileIdentity);
  return host::call_with_keywords(kind, keywords().file_identity_fields, field(0), sha256, field(3),
                                  field(4), field(1), field(2));
}

namespace {

constexpr host::Signature kStatKeySignature{.name = "stat_key", .kind = host::Kind::property};

Reference stat_key_body(PyObject* self, const Arguments& /*arguments*/) {
  const Reference size = attribute(self, names().size_bytes);
  const Reference modified = attribute(self, names().mtime_ns);
  const Reference changed = attribute(self, names().ctime_ns);
  const Reference device = attribute(self, names().device);
  const Reference inode = attribute(self, names().inode);
  return take(
      PyTuple_Pack(5, size.get(), modified.get(), changed.get(), device.get(), inode.get()));
}

}  // namespace

constinit const Operation kFileIdentityStatKey = Operation::of<kStatKeySignature, &stat_key_body>();

}  // namespace client_manifest::accepted
