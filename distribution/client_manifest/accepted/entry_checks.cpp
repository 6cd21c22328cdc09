// A wrong size is reported ahead of a malformed digest, and that ahead of a wrong one.
#include "accepted/entry_checks.h"

#include "accepted/digest.h"
#include "accepted/entry_requirements.h"
#include "host/message.h"
#include "host/value.h"

namespace client_manifest::accepted {
namespace {

using host::Arguments;
using host::Operation;
using host::Pass;
using host::raise;
using host::Reference;

}  // namespace

void validate_entry_digest(PyObject* entry, const Subject& subject, PyObject* actual_size,
                           PyObject* actual_sha) {
  const auto& [relative_path, label] = subject;
  const Reference expected_size =
      bound::require_nonnegative_size(host::get(entry, names().size_bytes).get(), relative_path);
  if (host::differ(expected_size.get(), actual_size)) {
    raise(PyExc_ValueError, "manifest advertises ", label, " size ", expected_size, ", but ",
          relative_path, " is ", actual_size, " bytes");
  }
  const Reference expected_sha =
      bound::require_sha256(host::get(entry, names().sha256).get(), relative_path);
  if (host::differ(expected_sha.get(), actual_sha)) {
    raise(PyExc_ValueError, "manifest advertises ", label, " sha256 ", expected_sha, ", but ",
          relative_path, " is ", actual_sha);
  }
}

void validate_entry_bytes(PyObject* entry, const Subject& subject, PyObject* payload) {
  if (PyBytes_Check(payload) == 0) raise(PyExc_TypeError, subject.label, " bytes must be bytes");
  const Reference actual_size = host::integer(std::int64_t{PyBytes_GET_SIZE(payload)});
  const Reference actual_sha = sha256_of(payload);
  bound::validate_entry_digest(entry, subject, actual_size.get(), actual_sha.get());
}

namespace bound {

void validate_entry_bytes(PyObject* entry, const Subject& subject, PyObject* payload) {
  const Reference now = global(names()._validate_entry_bytes);
  if (kValidateEntryBytes.is(now.get())) {
    accepted::validate_entry_bytes(entry, subject, payload);
    return;
  }
  static_cast<void>(host::call_with_keywords(now, keywords().relative_path_payload_label, entry,
                                             subject.relative_path, payload, subject.label));
}

void validate_entry_digest(PyObject* entry, const Subject& subject, PyObject* actual_size,
                           PyObject* actual_sha) {
  const Reference now = global(names()._validate_entry_digest);
  if (kValidateEntryDigest.is(now.get())) {
    accepted::validate_entry_digest(entry, subject, actual_size, actual_sha);
    return;
  }
  static_cast<void>(
      host::call_with_keywords(now, keywords().relative_path_actual_size_actual_sha_label, entry,
                               subject.relative_path, actual_size, actual_sha, subject.label));
}

}  // namespace bound

namespace {

constexpr host::Signature kBytesSignature{
    .name = "_validate_entry_bytes",
    .parameters = {{{"entry"},
                    {"relative_path", Pass::by_keyword},
                    {"payload", Pass::by_keyword},
                    {"label", Pass::by_keyword}}},
};
Reference bytes_body(PyObject* /*module*/, const Arguments& arguments) {
  validate_entry_bytes(arguments[0], {.relative_path = arguments[1], .label = arguments[3]},
                       arguments[2]);
  return Reference::acquire(Py_None);
}

constexpr host::Signature kDigestSignature{
    .name = "_validate_entry_digest",
    .parameters = {{{"entry"},
                    {"relative_path", Pass::by_keyword},
                    {"actual_size", Pass::by_keyword},
                    {"actual_sha", Pass::by_keyword},
                    {"label", Pass::by_keyword}}},
};
Reference digest_body(PyObject* /*module*/, const Arguments& arguments) {
  validate_entry_digest(arguments[0], {.relative_path = arguments[1], .label = arguments[4]},
                        arguments[2], arguments[3]);
  return Reference::acquire(Py_None);
}

}  // namespace

constinit const Operation kValidateEntryBytes = Operation::of<kBytesSignature, &bytes_body>();
constinit const Operation kValidateEntryDigest = Operation::of<kDigestSignature, &digest_body>();

}  // namespace client_manifest::accepted
