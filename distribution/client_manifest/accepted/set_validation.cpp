// Holds manifest and sidecar against each other: the sidecar's bytes, then the market, then the
// era, then every member in sorted order, then the payloads that the caller has.
#include "accepted/set_validation.h"

#include "accepted/declaration.h"
#include "accepted/entry_checks.h"
#include "accepted/entry_requirements.h"
#include "accepted/membership.h"
#include "documents/signals_index.h"
#include "host/message.h"
#include "host/value.h"

namespace client_manifest::accepted {
namespace {

using host::Arguments;
using host::Operation;
using host::Pass;
using host::raise;
using host::Reference;
using host::take;

Reference require_identity(PyObject* document, const char* name, PyObject* field) {
  const Reference value = host::get(document, field);
  return bound::require_positive_identity(value.get(), host::text(name, " ", field).get());
}

void require_same_identity(PyObject* manifest, const Reference& document, PyObject* field) {
  const Reference of_manifest = require_identity(manifest, "manifest", field);
  const Reference of_sidecar = require_identity(document.get(), "signals_index", field);
  if (host::differ(of_manifest.get(), of_sidecar.get())) {
    raise(PyExc_ValueError, "signals_index sidecar ", field, " must match manifest ", field);
  }
}

// A profit-and-loss file of one of the two found sections must be advertised as one, and stand
// under the section that lists it. Any other member, and all of useful_signals, is free of this.
void require_kind(const Reference& entry, PyObject* member_path, PyObject* section) {
  const bool of_signals = host::equal(section, names().found_signals);
  if (!of_signals && !host::equal(section, names().found_strategies)) return;
  const Reference path_section = bound::found_pnl_path_section(member_path);
  if (path_section.get() == Py_None) return;
  PyObject* const expected_kind =
      of_signals ? names().found_signal_is_pnl : names().found_strategy_is_epoch_pnl;
  if (host::differ(path_section.get(), section) ||
      host::differ(host::get(entry.get(), names().kind).get(), expected_kind)) {
    raise(PyExc_ValueError, "manifest files[\"", member_path, "\"].kind must be ", expected_kind,
          " for ", section, " membership");
  }
}

void require_advertised(const Reference& files, PyObject* member_path, PyObject* section) {
  const Reference entry = host::get(files.get(), member_path);
  if (PyDict_Check(entry.get()) == 0) {
    raise(PyExc_ValueError,
          "signals_index references a path not advertised in manifest: ", member_path);
  }
  if (host::differ(host::get(entry.get(), names().relative_path).get(), member_path)) {
    raise(PyExc_ValueError, "manifest files[\"", member_path, "\"].relative_path must be ",
          member_path);
  }
  require_kind(entry, member_path, section);
  static_cast<void>(
      bound::require_sha256(host::get(entry.get(), names().sha256).get(), member_path));
  static_cast<void>(bound::require_nonnegative_size(
      host::get(entry.get(), names().size_bytes).get(), member_path));
}

Reference paths_of(const Reference& references) {
  const Reference paths = take(PyList_New(0));
  host::for_each(references.get(), [&](PyObject* reference) {
    host::check(PyList_Append(paths.get(), host::unpack_pair(reference).first.get()));
  });
  return take(PyList_AsTuple(paths.get()));
}

void require_all_advertised(const Reference& files, const Reference& references) {
  host::for_each(references.get(), [&](PyObject* reference) {
    const host::Pair pair = host::unpack_pair(reference);
    require_advertised(files, pair.first.get(), pair.second.get());
  });
}

// `sorted(one - other)`.
Reference sorted_difference(const Reference& one, const Reference& other) {
  const Reference difference = take(PyNumber_Subtract(one.get(), other.get()));
  return host::sorted(difference.get());
}

void validate_payloads(const Reference& files, const Reference& membership_paths,
                       PyObject* membership_payloads) {
  if (!bound::is_mapping(membership_payloads)) {
    raise(PyExc_TypeError, "membership_payloads must be a mapping");
  }
  const Reference supplied = take(PySet_New(membership_payloads));
  const Reference expected = take(PySet_New(membership_paths.get()));
  const Reference missing = sorted_difference(expected, supplied);
  const Reference extra = sorted_difference(supplied, expected);
  if (PyList_GET_SIZE(missing.get()) > 0) {
    raise(PyExc_ValueError, "manifest/signals_index membership payload is missing: ",
          host::joined(", ", missing.get()));
  }
  if (PyList_GET_SIZE(extra.get()) > 0) {
    raise(PyExc_ValueError, "membership payloads contain paths outside the accepted set: ",
          host::joined(", ", extra.get()));
  }
  const Reference label = host::text("membership file");
  host::Iteration paths(membership_paths.get());
  while (const Reference path = paths.next()) {
    const Reference entry = host::item(files.get(), path.get());
    const Reference payload = host::item(membership_payloads, path.get());
    bound::validate_entry_bytes(entry.get(), {.relative_path = path.get(), .label = label.get()},
                                payload.get());
  }
}

}  // namespace

Reference validate_accepted_distribution_set(PyObject* manifest, PyObject* signals_index_bytes,
                                             PyObject* membership_payloads) {
  const Reference reference = bound::validate_signals_index_manifest_declaration(manifest);
  const Reference files = host::item(manifest, names().files);
  const Reference sidecar_entry = host::item(files.get(), reference.get());
  bound::validate_entry_bytes(
      sidecar_entry.get(),
      {.relative_path = reference.get(), .label = host::text("signals_index sidecar").get()},
      signals_index_bytes);
  const Reference document =
      documents::bound::parse_canonical_signals_index_bytes(signals_index_bytes, reference.get());
  require_same_identity(manifest, document, names().market_id);
  require_same_identity(manifest, document, names().era_number);
  const Reference references = bound::membership_references(document.get());
  const Reference membership_paths = paths_of(references);
  require_all_advertised(files, references);
  if (membership_payloads != Py_None) {
    validate_payloads(files, membership_paths, membership_payloads);
  }
  return host::call_with_keywords(global(names().AcceptedDistributionSet),
                                  keywords().accepted_set_fields, reference, document,
                                  membership_paths);
}

namespace bound {

Reference validate_accepted_distribution_set(PyObject* manifest, PyObject* signals_index_bytes) {
  const Reference now = global(names().validate_accepted_distribution_set);
  return kValidateAcceptedDistributionSet.is(now.get())
             ? accepted::validate_accepted_distribution_set(manifest, signals_index_bytes, Py_None)
             : host::call(now, manifest, signals_index_bytes);
}

}  // namespace bound

namespace {

constexpr host::Signature kSignature{
    .name = "validate_accepted_distribution_set",
    .parameters = {{{"manifest"},
                    {"signals_index_bytes"},
                    {"membership_payloads", Pass::by_keyword, "None"}}},
    .documentation = "Validate the one SDK accepted set without reading or repairing paths.",
};

Reference body(PyObject* /*module*/, const Arguments& arguments) {
  return validate_accepted_distribution_set(arguments[0], arguments[1], arguments.get(2, Py_None));
}

}  // namespace

constinit const Operation kValidateAcceptedDistributionSet = Operation::of<kSignature, &body>();

}  // namespace client_manifest::accepted
