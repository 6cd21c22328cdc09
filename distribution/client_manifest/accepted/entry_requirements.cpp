// Judges identities, sizes and digests. The host counts booleans as integers; here they are none.
#include "accepted/entry_requirements.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "host/message.h"
#include "host/value.h"

namespace client_manifest::accepted {
namespace {

using host::Arguments;
using host::Operation;
using host::Pass;
using host::raise;
using host::Reference;

constexpr Py_ssize_t kDigestLength = 64;

// Whether a character is a lower-case hexadecimal digit.
constexpr std::array<bool, 256> kIsDigit = [] {
  std::array<bool, 256> is_digit{};
  for (const char digit : std::string_view("0123456789abcdef")) {
    is_digit[static_cast<unsigned char>(digit)] = true;
  }
  return is_digit;
}();

// What the module's own pattern accepts.
bool is_lowercase_hex(PyObject* text) {
  host::check(PyUnicode_READY(text));
  if (PyUnicode_GET_LENGTH(text) != kDigestLength) return false;
  if (PyUnicode_KIND(text) != PyUnicode_1BYTE_KIND) return false;
  const Py_UCS1* const characters = PyUnicode_1BYTE_DATA(text);
  return std::all_of(characters, characters + kDigestLength,
                     [](Py_UCS1 character) { return kIsDigit[character]; });
}

bool is_digest(PyObject* text) {
  const Reference pattern = global(names().sha256_pattern);
  if (is_as_loaded(names().sha256_pattern, pattern)) return is_lowercase_hex(text);
  return host::call_method(pattern.get(), names().fullmatch, text).get() != Py_None;
}

}  // namespace

Reference require_positive_identity(PyObject* value, PyObject* label) {
  if (!host::is_integer(value) || !host::is_above_zero(value)) {
    raise(PyExc_ValueError, label, " is required and must be a positive integer");
  }
  return Reference::acquire(value);
}

Reference require_nonnegative_size(PyObject* value, PyObject* relative_path) {
  if (!host::is_integer(value)) {
    raise(PyExc_ValueError, "manifest files[\"", relative_path,
          "\"].size_bytes must be an integer");
  }
  if (host::is_below_zero(value)) {
    raise(PyExc_ValueError, "manifest files[\"", relative_path,
          "\"].size_bytes must be non-negative");
  }
  return Reference::acquire(value);
}

Reference require_sha256(PyObject* value, PyObject* relative_path) {
  if (PyUnicode_Check(value) == 0 || !is_digest(value)) {
    raise(PyExc_ValueError, "manifest files[\"", relative_path,
          "\"].sha256 must be 64 lowercase hex characters");
  }
  return Reference::acquire(value);
}

namespace bound {

Reference require_positive_identity(PyObject* value, PyObject* label) {
  return call_bound(names()._require_positive_identity, kRequirePositiveIdentity,
                    &accepted::require_positive_identity, keywords().label, value, label);
}

Reference require_nonnegative_size(PyObject* value, PyObject* relative_path) {
  return call_bound(names()._require_nonnegative_size, kRequireNonnegativeSize,
                    &accepted::require_nonnegative_size, keywords().relative_path, value,
                    relative_path);
}

Reference require_sha256(PyObject* value, PyObject* relative_path) {
  return call_bound(names()._require_sha256, kRequireSha256, &accepted::require_sha256,
                    keywords().relative_path, value, relative_path);
}

}  // namespace bound

namespace {

constexpr host::Signature kIdentitySignature{
    .name = "_require_positive_identity",
    .parameters = {{{"value"}, {"label", Pass::by_keyword}}},
};
Reference identity_body(PyObject* /*module*/, const Arguments& arguments) {
  return require_positive_identity(arguments[0], arguments[1]);
}

constexpr host::Signature kSizeSignature{
    .name = "_require_nonnegative_size",
    .parameters = {{{"value"}, {"relative_path", Pass::by_keyword}}},
};
Reference size_body(PyObject* /*module*/, const Arguments& arguments) {
  return require_nonnegative_size(arguments[0], arguments[1]);
}

constexpr host::Signature kDigestSignature{
    .name = "_require_sha256",
    .parameters = {{{"value"}, {"relative_path", Pass::by_keyword}}},
};
Reference digest_body(PyObject* /*module*/, const Arguments& arguments) {
  return require_sha256(arguments[0], arguments[1]);
}

}  // namespace

constinit const Operation kRequirePositiveIdentity =
    Operation::of<kIdentitySignature, &identity_body>();
constinit const Operation kRequireNonnegativeSize = Operation::of<kSizeSignature, &size_body>();
constinit const Operation kRequireSha256 = Operation::of<kDigestSignature, &digest_body>();

}  // namespace client_manifest::accepted
