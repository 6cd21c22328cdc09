// Walks the manifest's declaration in a fixed order; the first fault ends the walk.
#include "accepted/declaration.h"

#include <vector>

#include "accepted/entry_requirements.h"
#include "documents/relative_path.h"
#include "host/message.h"
#include "host/value.h"

namespace client_manifest::accepted {
namespace {

using host::Arguments;
using host::Operation;
using host::raise;
using host::Reference;
using host::take;

void refuse_legacy(const Reference& legacy, PyObject* value) {
  if (host::equal(value, legacy.get())) {
    raise(PyExc_ValueError, "legacy signals_index.json sidecar is not supported");
  }
}

void refuse_inline_membership(PyObject* manifest) {
  const Reference inline_sections = take(PyList_New(0));
  host::Iteration sections(global(names().signals_index_sections).get());
  while (const Reference section = sections.next()) {
    if (host::contains(manifest, section.get())) {
      host::check(PyList_Append(inline_sections.get(), section.get()));
    }
  }
  if (PyList_GET_SIZE(inline_sections.get()) > 0) {
    raise(PyExc_ValueError, "manifest contains legacy inline signals_index membership: ",
          host::joined(", ", inline_sections.get()));
  }
}

// What the pattern of sidecar paths finds in `reference`.
Reference match_sidecar_path(const Reference& reference) {
  const Reference pattern = global(names().signals_index_path_pattern);
  Reference match = host::call_method(pattern.get(), names().fullmatch, reference);
  if (match.get() == Py_None) {
    raise(PyExc_ValueError,
          "manifest signals_index must reference _control/signals_index.<sha256>.json");
  }
  return match;
}

bool is_signals_index_kind(PyObject* entry) {
  return host::equal(host::get(entry, names().kind).get(), names().signals_index);
}

[[noreturn]] void raise_wrong_kind(const Reference& reference) {
  raise(PyExc_ValueError, "manifest files[\"", reference, "\"].kind must be signals_index");
}

struct SidecarEntry {
  Reference path;
  Reference entry;
};

// Judges every key of `files` and gives the one entry of the sidecar's kind.
SidecarEntry sole_sidecar_entry(const Reference& files, const Reference& legacy) {
  std::vector<SidecarEntry> sidecar_entries;
  host::Iteration items(host::call_method(files.get(), names().items).get());
  while (const Reference item = items.next()) {
    host::Pair pair = host::unpack_pair(item.get());
    Reference safe_file_path = documents::bound::validate_manifest_relative_path(pair.first.get());
    Reference entry = std::move(pair.second);
    refuse_legacy(legacy, safe_file_path.get());
    if (PyDict_Check(entry.get()) == 0) continue;
    refuse_legacy(legacy, host::get(entry.get(), names().relative_path).get());
    if (is_signals_index_kind(entry.get())) {
      sidecar_entries.push_back({std::move(safe_file_path), std::move(entry)});
    }
  }
  if (sidecar_entries.size() != 1) {
    raise(PyExc_ValueError, "manifest must declare exactly one signals_index file entry");
  }
  return std::move(sidecar_entries.front());
}

}  // namespace

Reference validate_signals_index_manifest_declaration(PyObject* manifest) {
  if (PyDict_Check(manifest) == 0) raise(PyExc_TypeError, "manifest must be a dict");
  const Reference raw_reference = host::get(manifest, names().signals_index);
  const Reference files = host::get(manifest, names().files);
  if (raw_reference.get() == Py_None) {
    raise(PyExc_ValueError, "manifest signals_index is required");
  }
  const Reference legacy = global(names().legacy_signals_index_path);
  refuse_legacy(legacy, raw_reference.get());
  refuse_inline_membership(manifest);

  Reference reference = documents::bound::validate_manifest_relative_path(raw_reference.get());
  const Reference match = match_sidecar_path(reference);

  if (PyDict_Check(files.get()) == 0) {
    raise(PyExc_ValueError, "manifest files must contain the signals_index entry");
  }
  const Reference referenced_entry = host::get(files.get(), reference.get());
  if (PyDict_Check(referenced_entry.get()) == 0) {
    raise(PyExc_ValueError, "manifest files missing signals_index entry: ", reference);
  }
  if (!is_signals_index_kind(referenced_entry.get())) raise_wrong_kind(reference);

  const auto [declared_path, entry] = sole_sidecar_entry(files, legacy);
  if (host::differ(declared_path.get(), reference.get())) {
    raise(PyExc_ValueError,
          "manifest signals_index must reference its sole signals_index file entry");
  }
  if (host::differ(host::get(entry.get(), names().relative_path).get(), reference.get())) {
    raise(PyExc_ValueError, "manifest files[\"", reference, "\"].relative_path must be ",
          reference);
  }
  if (!is_signals_index_kind(entry.get())) raise_wrong_kind(reference);

  const Reference expected_sha =
      bound::require_sha256(host::get(entry.get(), names().sha256).get(), reference.get());
  const Reference path_sha =
      host::call_method(match.get(), names().group, host::integer(std::int64_t{1}));
  if (host::differ(expected_sha.get(), path_sha.get())) {
    raise(PyExc_ValueError, "manifest signals_index path digest must match entry sha256");
  }
  static_cast<void>(bound::require_nonnegative_size(
      host::get(entry.get(), names().size_bytes).get(), reference.get()));
  return reference;
}

namespace bound {

Reference validate_signals_index_manifest_declaration(PyObject* manifest) {
  return call_bound(names().validate_signals_index_manifest_declaration,
                    kValidateSignalsIndexManifestDeclaration,
                    &accepted::validate_signals_index_manifest_declaration, nullptr, manifest);
}

}  // namespace bound

namespace {

constexpr host::Signature kSignature{
    .name = "validate_signals_index_manifest_declaration",
    .parameters = {{{"manifest"}}},
    .documentation = "Return the sole canonical content-addressed sidecar declaration.",
};

Reference body(PyObject* /*module*/, const Arguments& arguments) {
  return validate_signals_index_manifest_declaration(arguments[0]);
}

}  // namespace

constinit const Operation kValidateSignalsIndexManifestDeclaration =
    Operation::of<kSignature, &body>();

}  // namespace client_manifest::accepted
