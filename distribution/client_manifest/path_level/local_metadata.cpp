// Absence is normal, and everything that is present but wrong is loud.
//
// The search for a candidate is no proof: the host's glob follows links. What it finds is proved
// by the read, which pins the candidate's directory. Nor is a result held against the request: it
// says what is on the disk.
#include "path_level/local_metadata.h"

#include "host/message.h"
#include "host/value.h"

namespace client_manifest::path_level {
namespace {

using host::Arguments;
using host::Error;
using host::Operation;
using host::Pass;
using host::Reference;
using host::take;

constexpr host::Signature kPositiveSignature{
    .name = "positive_manifest_int",
    .parameters = {{{"value"}}},
};

// Lenient about form, as the host's `int` is, and strict only about booleans, which the host counts
// as integers, and about the sign.
Reference positive_manifest_int(PyObject* /*module*/, const Arguments& arguments) {
  PyObject* const value = arguments[0];
  if (PyBool_Check(value) != 0 || value == Py_None) return Reference::acquire(Py_None);
  try {
    Reference out = take(PyNumber_Long(value));
    return host::is_above_zero(out.get()) ? std::move(out) : Reference::acquire(Py_None);
  } catch (const Error& error) {
    if (!error.matches(PyExc_TypeError) && !error.matches(PyExc_ValueError)) throw;
    return Reference::acquire(Py_None);
  }
}

// By what the module's name is bound to.
Reference positive(PyObject* value) {
  return host::call(global(names().positive_manifest_int), value);
}

Reference fspath(PyObject* path) {
  return host::call_method(global(names().os).get(), names().fspath, path);
}

template <class... Segments>
Reference joined(const Reference& base, const Segments&... segments) {
  const Reference os_path = host::attribute(global(names().os).get(), names().path);
  return host::call_method(os_path.get(), names().join, base, segments...);
}

constexpr host::Signature kFromPathSignature{
    .name = "manifest_metadata_from_path",
    .parameters = {{{"path"}}},
};

// The bytes of the manifest, or nothing where it or a directory on the way to it is missing.
Reference manifest_bytes_if_present(PyObject* path) {
  try {
    const Reference read = global(names().read_regular_file_path);
    return host::call_with_keywords(read, keywords().label, path, fspath(path));
  } catch (const Error& error) {
    if (!error.matches(PyExc_FileNotFoundError)) throw;
    return {};
  }
}

Reference manifest_metadata_from_path(PyObject* /*module*/, const Arguments& arguments) {
  PyObject* const path = arguments[0];
  const Reference manifest_bytes = manifest_bytes_if_present(path);
  if (!manifest_bytes) return take(PyDict_New());
  const Reference parse = global(names().parse_distribution_manifest_bytes);
  const Reference manifest =
      host::call_with_keywords(parse, keywords().label, manifest_bytes, fspath(path));
  const Reference version = positive(host::get(manifest.get(), names().version).get());
  const Reference market_id = positive(host::get(manifest.get(), names().market_id).get());
  const Reference era_number = positive(host::get(manifest.get(), names().era_number).get());
  if (version.get() == Py_None || market_id.get() == Py_None || era_number.get() == Py_None) {
    return take(PyDict_New());
  }
  Reference metadata = take(PyDict_New());
  host::check(PyDict_SetItem(metadata.get(), names().client_manifest_version, version.get()));
  host::check(PyDict_SetItem(metadata.get(), names().client_manifest_market_id, market_id.get()));
  host::check(PyDict_SetItem(metadata.get(), names().client_manifest_era_number, era_number.get()));
  return metadata;
}

constexpr host::Signature kLocalSignature{
    .name = "local_client_manifest_metadata",
    .parameters = {{{"data_dir"},
                    {"market_id", Pass::by_keyword, "None"},
                    {"era_number", Pass::by_keyword, "None"}}},
};

// The matches of an era in any market, sorted.
Reference candidates_of_era(const Reference& base_dir, const Reference& era_number) {
  const Reference base = host::call(global(names().Path), base_dir);
  const Reference distribution_dir =
      take(PyNumber_TrueDivide(base.get(), host::text("distribution").get()));
  const Reference pattern = host::text("market_*/era_", era_number, "/manifest.json");
  return host::sorted(host::call_method(distribution_dir.get(), names().glob, pattern).get());
}

// The paths to try, in order.
Reference manifest_paths_under(const Reference& base_dir, const Reference& market_id,
                               const Reference& era_number) {
  Reference manifest_paths = take(PyList_New(0));
  const auto append = [&](const Reference& path) {
    host::check(PyList_Append(manifest_paths.get(), path.get()));
  };
  const Reference leaf = host::text("manifest.json");
  const bool has_market = market_id.get() != Py_None;
  const bool has_era = era_number.get() != Py_None;
  if (has_market && has_era) {
    append(joined(base_dir, host::text("distribution"), host::text("market_", market_id),
                  host::text("era_", era_number), leaf));
  } else if (has_era) {
    // An era that stands in several markets is ambiguous: none of them is chosen.
    const Reference candidates = candidates_of_era(base_dir, era_number);
    if (PyList_GET_SIZE(candidates.get()) == 1) {
      append(take(PyObject_Str(PyList_GET_ITEM(candidates.get(), 0))));
    }
  }
  append(joined(base_dir, leaf));
  return manifest_paths;
}

Reference local_client_manifest_metadata(PyObject* /*module*/, const Arguments& arguments) {
  PyObject* const data_dir = arguments[0];
  if (!host::is_true(data_dir)) return take(PyDict_New());
  const Reference base_dir = fspath(data_dir);
  const Reference requested_market_id = positive(arguments.get(1, Py_None));
  const Reference requested_era_number = positive(arguments.get(2, Py_None));
  host::Iteration manifest_paths(
      manifest_paths_under(base_dir, requested_market_id, requested_era_number).get());
  while (const Reference manifest_path = manifest_paths.next()) {
    Reference metadata = host::call(global(names().manifest_metadata_from_path), manifest_path);
    if (host::is_true(metadata.get())) return metadata;
  }
  return take(PyDict_New());
}

}  // namespace

constinit const Operation kPositiveManifestInt =
    Operation::of<kPositiveSignature, &positive_manifest_int>();
constinit const Operation kManifestMetadataFromPath =
    Operation::of<kFromPathSignature, &manifest_metadata_from_path>();
constinit const Operation kLocalClientManifestMetadata =
    Operation::of<kLocalSignature, &local_client_manifest_metadata>();

}  // namespace client_manifest::path_level
