// Reads manifest and sidecar, hashes every member, and proves the root once more at the end, all
// through one pinned root. Nothing is caught here: every failure leaves as it was raised, and the
// root is released on the way.
#include "accepted/load.h"

#include "accepted/declaration.h"
#include "accepted/entry_checks.h"
#include "accepted/set_validation.h"
#include "documents/strict_json.h"
#include "host/context_manager.h"
#include "host/message.h"
#include "host/value.h"
#include "pinned_root/instance.h"

namespace client_manifest::accepted {
namespace {

using host::Arguments;
using host::Operation;
using host::Pass;
using host::raise;
using host::Reference;

Reference read(PyObject* reader, PyObject* relative_path, const Reference& label) {
  return host::call_method_with_keywords(reader, names().read_regular_file, keywords().label,
                                         relative_path, label);
}

void refuse_legacy_sidecar(PyObject* reader) {
  const Reference legacy = host::call_method_with_keywords(
      reader, names().read_regular_file_if_present, keywords().label,
      global(names().legacy_signals_index_path), host::text("legacy signals_index.json"));
  if (legacy.get() != Py_None) {
    raise(PyExc_ValueError, "legacy signals_index.json sidecar is not supported");
  }
}

void prove_member(PyObject* reader, const Reference& manifest, PyObject* relative_path,
                  const Reference& label) {
  const FileIdentity identity =
      pinned_root::through(reader).hash_regular_file(relative_path, label.get());
  const Reference files = host::item(manifest.get(), names().files);
  const Reference entry = host::item(files.get(), relative_path);
  const Reference actual_size = identity.size_bytes();
  const Reference actual_sha = identity.sha256();
  bound::validate_entry_digest(entry.get(), {.relative_path = relative_path, .label = label.get()},
                               actual_size.get(), actual_sha.get());
}

Reference load_from(PyObject* reader, PyObject* given_manifest) {
  Reference manifest = Reference::acquire(given_manifest);
  Reference manifest_bytes = Reference::acquire(Py_None);
  if (given_manifest == Py_None) {
    const Reference label = host::text("manifest.json");
    manifest_bytes = read(reader, label.get(), label);
    manifest =
        documents::bound::parse_distribution_manifest_bytes(manifest_bytes.get(), label.get());
  } else if (PyDict_Check(given_manifest) == 0) {
    raise(PyExc_TypeError, "manifest must be a dict");
  }

  refuse_legacy_sidecar(reader);
  const Reference sidecar_path = bound::validate_signals_index_manifest_declaration(manifest.get());
  const Reference sidecar_bytes =
      read(reader, sidecar_path.get(), host::text("signals_index sidecar"));
  const Reference metadata_accepted =
      bound::validate_accepted_distribution_set(manifest.get(), sidecar_bytes.get());

  const Reference label = host::text("membership file");
  host::Iteration members(host::attribute(metadata_accepted.get(), names().membership_paths).get());
  while (const Reference relative_path = members.next()) {
    prove_member(reader, manifest, relative_path.get(), label);
  }

  static_cast<void>(host::call_method(reader, names().assert_root_unchanged));
  return host::call_with_keywords(global(names().LoadedAcceptedDistributionSet),
                                  keywords().loaded_set_fields, manifest, manifest_bytes,
                                  sidecar_bytes, metadata_accepted);
}

}  // namespace

Reference load_accepted_distribution_set(PyObject* root, PyObject* manifest) {
  const Reference pinned = host::call(global(names().PinnedRoot), root);
  return host::with(pinned.get(), [&](PyObject* reader) { return load_from(reader, manifest); });
}

namespace {

constexpr host::Signature kSignature{
    .name = "load_accepted_distribution_set",
    .parameters = {{{"root"}, {"manifest", Pass::by_keyword, "None"}}},
    .documentation = "Authenticate manifest, sidecar, and membership streams under one root pin.",
};

Reference body(PyObject* /*module*/, const Arguments& arguments) {
  return load_accepted_distribution_set(arguments[0], arguments.get(1, Py_None));
}

}  // namespace

constinit const Operation kLoadAcceptedDistributionSet = Operation::of<kSignature, &body>();

}  // namespace client_manifest::accepted
