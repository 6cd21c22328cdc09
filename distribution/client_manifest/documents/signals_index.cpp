// Parses the five-member document and holds its bytes against what the host's serialiser makes of
// these five members: a sixth member, another order or another spelling shows in the bytes.
#include "documents/signals_index.h"

#include <cstring>

#include "accepted/entry_requirements.h"
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

Reference encode_utf8(const Reference& text) {
  if (PyUnicode_CheckExact(text.get()) != 0) return take(PyUnicode_AsUTF8String(text.get()));
  return take(PyObject_CallMethod(text.get(), "encode", "s", "utf-8"));
}

Reference canonical_bytes(const Reference& canonical_document, PyObject* label) {
  try {
    const Reference json = global(names().json);
    return encode_utf8(host::call_method_with_keywords(json.get(), names().dumps,
                                                       keywords().sort_keys_allow_nan,
                                                       canonical_document, Py_True, Py_False));
  } catch (const Error& error) {
    if (!error.matches(PyExc_TypeError) && !error.matches(PyExc_ValueError)) throw;
    raise_from(error, PyExc_ValueError, label, " cannot be serialized as canonical JSON");
  }
}

// Compares contents: an operator that a subclass of bytes overrides has no say in the proof.
bool same_bytes(const Reference& serialised, PyObject* payload) {
  if (PyBytes_Check(serialised.get()) == 0 || PyBytes_Check(payload) == 0) {
    return !host::differ(serialised.get(), payload);
  }
  const Py_ssize_t size = PyBytes_GET_SIZE(payload);
  return PyBytes_GET_SIZE(serialised.get()) == size &&
         std::memcmp(PyBytes_AS_STRING(serialised.get()), PyBytes_AS_STRING(payload),
                     static_cast<std::size_t>(size)) == 0;
}

void store(const Reference& document, PyObject* key, const Reference& value) {
  host::check(PyObject_SetItem(document.get(), key, value.get()));
}

}  // namespace

Reference parse_canonical_signals_index_bytes(PyObject* payload, PyObject* label) {
  Reference document = bound::parse_strict_json_object_bytes(payload, label);

  const Reference canonical_document = take(PyDict_New());
  for (PyObject* const field : {names().market_id, names().era_number}) {
    const Reference value = host::get(document.get(), field);
    const Reference field_label = host::text(label, " ", field);
    store(canonical_document, field,
          accepted::bound::require_positive_identity(value.get(), field_label.get()));
  }

  host::Iteration sections(global(names().signals_index_sections).get());
  while (const Reference section = sections.next()) {
    const Reference value = host::get(document.get(), section.get());
    if (PyDict_Check(value.get()) == 0) {
      raise(PyExc_ValueError, label, " ", section, " is required and must be an object");
    }
    store(canonical_document, section.get(), value);
  }

  if (!same_bytes(canonical_bytes(canonical_document, label), payload)) {
    raise(PyExc_ValueError, label, " bytes are not canonical JSON");
  }
  return document;
}

namespace bound {

Reference parse_canonical_signals_index_bytes(PyObject* payload, PyObject* label) {
  return call_bound(names().parse_canonical_signals_index_bytes, kParseCanonicalSignalsIndexBytes,
                    &documents::parse_canonical_signals_index_bytes, keywords().label, payload,
                    label);
}

}  // namespace bound

namespace {

constexpr host::Signature kSignature{
    .name = "parse_canonical_signals_index_bytes",
    .parameters = {{{"payload"}, {"label", Pass::by_keyword, "'signals_index.json'"}}},
    .documentation = "Parse the producer's exact canonical five-field signals-index bytes.",
};

Reference body(PyObject* /*module*/, const Arguments& arguments) {
  const Reference label = arguments[1] != nullptr
                              ? Reference::acquire(arguments[1])
                              : take(PyUnicode_FromString("signals_index.json"));
  return parse_canonical_signals_index_bytes(arguments[0], label.get());
}

}  // namespace

constinit const Operation kParseCanonicalSignalsIndexBytes = Operation::of<kSignature, &body>();

}  // namespace client_manifest::documents
