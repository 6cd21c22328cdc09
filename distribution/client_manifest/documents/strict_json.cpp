// Drives the host's JSON parser with two hooks that refuse what it would let pass: a key that
// comes twice in one object, and a constant that is no finite number.
#include "documents/strict_json.h"

#include "host/message.h"
#include "host/value.h"

namespace client_manifest::documents {
namespace {

using host::Arguments;
using host::Error;
using host::Operation;
using host::Pass;
using host::raise;
using host::raise_from;
using host::Reference;
using host::take;

void store_new(const Reference& document, PyObject* key, PyObject* value) {
  if (PyUnicode_CheckExact(key) != 0) {
    // One look-up does for both the test and the store: a taken key leaves the size as it was.
    const Py_ssize_t size = PyDict_Size(document.get());
    host::check(PyDict_SetItem(document.get(), key, value));
    if (PyDict_Size(document.get()) > size) return;
  } else if (!host::contains(document.get(), key)) {
    host::check(PyDict_SetItem(document.get(), key, value));
    return;
  }
  throw Error(global(names().duplicate_json_key_error).get(), Reference::acquire(key));
}

}  // namespace

Reference object_without_duplicate_keys(PyObject* pairs) {
  Reference document = take(PyDict_New());
  host::for_each(pairs, [&](PyObject* entry) {
    const host::Pair pair = host::unpack_pair(entry);
    store_new(document, pair.first.get(), pair.second.get());
  });
  return document;
}

void reject_nonfinite_json_constant(PyObject* value) {
  raise(global(names().StrictJsonError).get(), "non-finite JSON constant is forbidden: ", value);
}

Reference parse_strict_json_object_bytes(PyObject* payload, PyObject* label) {
  if (PyBytes_Check(payload) == 0) raise(PyExc_TypeError, label, " bytes must be bytes");

  Reference text;
  try {
    text =
        take(PyUnicode_DecodeUTF8(PyBytes_AS_STRING(payload), PyBytes_GET_SIZE(payload), "strict"));
  } catch (const Error& error) {
    if (!error.matches(PyExc_UnicodeDecodeError)) throw;
    const host::Handling handling(error);
    raise_from(error, global(names().StrictJsonError).get(), label, " is not valid UTF-8");
  }

  Reference document;
  try {
    const Reference json = global(names().json);
    document = host::call_method_with_keywords(json.get(), names().loads,
                                               keywords().pairs_hook_and_constant_hook, text,
                                               global(names()._object_without_duplicate_keys),
                                               global(names()._reject_nonfinite_json_constant));
  } catch (const Error& error) {
    const host::Handling handling(error);
    if (error.matches(global(names().duplicate_json_key_error).get())) {
      raise_from(error, global(names().StrictJsonError).get(), label,
                 " contains duplicate object key: ", error.exception());
    }
    if (error.matches(host::attribute(global(names().json).get(), names().JSONDecodeError).get())) {
      raise_from(error, global(names().StrictJsonError).get(), label, " is not valid JSON");
    }
    throw;
  }

  if (PyDict_Check(document.get()) == 0) {
    raise(global(names().StrictJsonError).get(), label, " must contain a JSON object");
  }
  return document;
}

Reference parse_distribution_manifest_bytes(PyObject* manifest_bytes, PyObject* label) {
  try {
    return bound::parse_strict_json_object_bytes(manifest_bytes, label);
  } catch (const Error& error) {
    const host::Handling handling(error);
    if (!error.matches(global(names().StrictJsonError).get())) throw;
    const Reference manifest_error = global(names().ManifestJsonError);
    const Reference same_text = take(PyObject_Str(error.exception()));
    throw Error(manifest_error.get(), same_text).from(error);
  }
}

namespace bound {

Reference parse_strict_json_object_bytes(PyObject* payload, PyObject* label) {
  return call_bound(names().parse_strict_json_object_bytes, kParseStrictJsonObjectBytes,
                    &documents::parse_strict_json_object_bytes, keywords().label, payload, label);
}

Reference parse_distribution_manifest_bytes(PyObject* manifest_bytes, PyObject* label) {
  return call_bound(names().parse_distribution_manifest_bytes, kParseDistributionManifestBytes,
                    &documents::parse_distribution_manifest_bytes, keywords().label, manifest_bytes,
                    label);
}

}  // namespace bound

namespace {

constexpr host::Signature kPairsHookSignature{
    .name = "_object_without_duplicate_keys",
    .parameters = {{{"pairs"}}},
};
Reference pairs_hook_body(PyObject* /*module*/, const Arguments& arguments) {
  return object_without_duplicate_keys(arguments[0]);
}

constexpr host::Signature kConstantHookSignature{
    .name = "_reject_nonfinite_json_constant",
    .parameters = {{{"value"}}},
};
Reference constant_hook_body(PyObject* /*module*/, const Arguments& arguments) {
  reject_nonfinite_json_constant(arguments[0]);
}

constexpr host::Signature kStrictSignature{
    .name = "parse_strict_json_object_bytes",
    .parameters = {{{"payload"}, {"label", Pass::by_keyword}}},
    .documentation = "Parse one untrusted UTF-8 JSON object without ambiguous JSON values.",
};
Reference strict_body(PyObject* /*module*/, const Arguments& arguments) {
  return parse_strict_json_object_bytes(arguments[0], arguments[1]);
}

constexpr host::Signature kManifestSignature{
    .name = "parse_distribution_manifest_bytes",
    .parameters = {{{"manifest_bytes"}, {"label", Pass::by_keyword, "'manifest.json'"}}},
    .documentation = "Parse exact full-distribution manifest bytes through the SDK authority.",
};
Reference manifest_body(PyObject* /*module*/, const Arguments& arguments) {
  const Reference label = arguments[1] != nullptr ? Reference::acquire(arguments[1])
                                                  : take(PyUnicode_FromString("manifest.json"));
  return parse_distribution_manifest_bytes(arguments[0], label.get());
}

}  // namespace

constinit const Operation kObjectWithoutDuplicateKeys =
    Operation::of<kPairsHookSignature, &pairs_hook_body>();
constinit const Operation kRejectNonfiniteJsonConstant =
    Operation::of<kConstantHookSignature, &constant_hook_body>();
constinit const Operation kParseStrictJsonObjectBytes =
    Operation::of<kStrictSignature, &strict_body>();
constinit const Operation kParseDistributionManifestBytes =
    Operation::of<kManifestSignature, &manifest_body>();

}  // namespace client_manifest::documents
