// States the fields of each record, in the order of its initialiser, and its properties.
#include "accepted/records.h"

#include "accepted/file_identity.h"
#include "host/plain_class.h"

namespace client_manifest::accepted {
namespace {

using host::Arguments;
using host::Operation;
using host::Reference;

Reference of_accepted(PyObject* self, PyObject* name) {
  const Reference accepted = host::attribute(self, names().accepted);
  return host::attribute(accepted.get(), name);
}

constexpr host::Signature kPathSignature{.name = "signals_index_path",
                                         .kind = host::Kind::property};
Reference path_body(PyObject* self, const Arguments& /*arguments*/) {
  return of_accepted(self, names().signals_index_path);
}
constinit const Operation kPath = Operation::of<kPathSignature, &path_body>();

constexpr host::Signature kDocumentSignature{.name = "signals_index_document",
                                             .kind = host::Kind::property};
Reference document_body(PyObject* self, const Arguments& /*arguments*/) {
  return of_accepted(self, names().signals_index_document);
}
constinit const Operation kDocument = Operation::of<kDocumentSignature, &document_body>();

constexpr host::Signature kMembersSignature{.name = "membership_paths",
                                            .kind = host::Kind::property};
Reference members_body(PyObject* self, const Arguments& /*arguments*/) {
  return of_accepted(self, names().membership_paths);
}
constinit const Operation kMembers = Operation::of<kMembersSignature, &members_body>();

}  // namespace

Reference make_accepted_distribution_set_class(PyObject* dataclass, PyObject* module_name) {
  return host::frozen_record(
      {.name = "AcceptedDistributionSet",
       .documentation = "One manifest/sidecar membership set proven by exact metadata.",
       .module_name = module_name},
      dataclass,
      {{"signals_index_path", "str"},
       {"signals_index_document", "dict[str, Any]"},
       {"membership_paths", "tuple[str, ...]"}},
      {});
}

Reference make_loaded_accepted_distribution_set_class(PyObject* dataclass, PyObject* module_name) {
  return host::frozen_record(
      {.name = "LoadedAcceptedDistributionSet",
       .documentation = "Manifest closure authenticated in one pinned-root transaction.",
       .module_name = module_name},
      dataclass,
      {{"manifest", "dict[str, Any]"},
       {"manifest_bytes", "bytes | None"},
       {"signals_index_bytes", "bytes"},
       {"accepted", "AcceptedDistributionSet"}},
      {&kPath, &kDocument, &kMembers});
}

Reference make_contained_file_identity_class(PyObject* dataclass, PyObject* module_name) {
  return host::frozen_record(
      {.name = "ContainedFileIdentity",
       .documentation = "One stable descriptor-pinned regular-file identity and content hash.",
       .module_name = module_name},
      dataclass,
      {{"size_bytes", "int"},
       {"sha256", "str"},
       {"device", "int"},
       {"inode", "int"},
       {"mtime_ns", "int"},
       {"ctime_ns", "int"}},
      {&kFileIdentityStatKey});
}

}  // namespace client_manifest::accepted
