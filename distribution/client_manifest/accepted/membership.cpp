// Walks the sections in their fixed order, entities in document order and paths in list order, so
// that the first owner of a path that is listed twice is always the same.
#include "accepted/membership.h"

#include <string_view>

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

PyObject* pnl_section(std::string_view path) {
  if (path.starts_with("found_signals/") && path.ends_with("/signal_is/pnl.arrow")) {
    return names().found_signals;
  }
  if (path.starts_with("found_strategies/") && path.ends_with("/strategy_is/pnl.arrow")) {
    return names().found_strategies;
  }
  if (path.starts_with("useful_signals/") &&
      (path.ends_with("/signal_os/pnl.arrow") || path.ends_with("/strategy_is/pnl.arrow"))) {
    return names().useful_signals;
  }
  return Py_None;
}

// The members collected so far, and who owns them.
class Membership {
 public:
  Membership() : references_(take(PyList_New(0))), seen_(take(PyDict_New())) {}

  void add(PyObject* raw_path, const Reference& section, const Reference& entity_id) {
    const Reference relative_path = documents::bound::validate_manifest_relative_path(raw_path);
    const Reference owner = host::text(section, ".", entity_id);
    if (host::contains(seen_.get(), relative_path.get())) {
      const Reference shown = take(PyObject_Repr(relative_path.get()));
      raise(PyExc_ValueError, "signals_index contains duplicate membership path ", shown, " in ",
            host::item(seen_.get(), relative_path.get()), " and ", owner);
    }
    host::check(PyDict_SetItem(seen_.get(), relative_path.get(), owner.get()));
    const Reference reference = take(PyTuple_Pack(2, relative_path.get(), section.get()));
    host::check(PyList_Append(references_.get(), reference.get()));
  }

  [[nodiscard]] Reference sorted() const {
    host::check(PyList_Sort(references_.get()));
    return take(PyList_AsTuple(references_.get()));
  }

 private:
  Reference references_;
  Reference seen_;
};

void add_entity(Membership& membership, const Reference& section, const host::Pair& entity) {
  const Reference& entity_id = entity.first;
  const Reference& listed = entity.second;
  if (!bound::is_mapping(listed.get())) {
    raise(PyExc_ValueError, "signals_index ", section, ".", entity_id, " must be an object");
  }
  const Reference no_files = take(PyList_New(0));
  const Reference raw_files = host::get(listed.get(), names().files, no_files.get());
  if (PyList_Check(raw_files.get()) == 0) {
    raise(PyExc_ValueError, "signals_index ", section, ".", entity_id, ".files must be a list");
  }
  host::for_each(raw_files.get(),
                 [&](PyObject* raw_path) { membership.add(raw_path, section, entity_id); });
}

}  // namespace

Reference found_pnl_path_section(PyObject* relative_path) {
  // What is looked for is ASCII, which stands for itself in UTF-8 and for nothing else.
  const Reference encoded =
      take(PyUnicode_AsEncodedString(relative_path, "utf-8", "surrogatepass"));
  const auto length = static_cast<std::size_t>(PyBytes_GET_SIZE(encoded.get()));
  return Reference::acquire(pnl_section({PyBytes_AS_STRING(encoded.get()), length}));
}

Reference membership_references(PyObject* document) {
  Membership membership;
  host::Iteration sections(global(names().signals_index_sections).get());
  while (const Reference section = sections.next()) {
    const Reference entries = host::get(document, section.get());
    if (!bound::is_mapping(entries.get())) {
      raise(PyExc_ValueError, "signals_index ", section, " must be an object");
    }
    host::Iteration entities(host::call_method(entries.get(), names().items).get());
    while (const Reference entity = entities.next()) {
      add_entity(membership, section, host::unpack_pair(entity.get()));
    }
  }
  return membership.sorted();
}

namespace bound {

Reference found_pnl_path_section(PyObject* relative_path) {
  return call_bound(names()._found_pnl_path_section, kFoundPnlPathSection,
                    &accepted::found_pnl_path_section, nullptr, relative_path);
}

Reference membership_references(PyObject* document) {
  return call_bound(names()._membership_references, kMembershipReferences,
                    &accepted::membership_references, nullptr, document);
}

bool is_mapping(PyObject* value) {
  const Reference mapping = global(names().Mapping);
  if (PyDict_CheckExact(value) != 0 && is_as_loaded(names().Mapping, mapping)) return true;
  return host::check(PyObject_IsInstance(value, mapping.get())) != 0;
}

}  // namespace bound

namespace {

constexpr host::Signature kSectionSignature{
    .name = "_found_pnl_path_section",
    .parameters = {{{"relative_path"}}},
};
Reference section_body(PyObject* /*module*/, const Arguments& arguments) {
  return found_pnl_path_section(arguments[0]);
}

constexpr host::Signature kReferencesSignature{
    .name = "_membership_references",
    .parameters = {{{"document"}}},
};
Reference references_body(PyObject* /*module*/, const Arguments& arguments) {
  return membership_references(arguments[0]);
}

}  // namespace

constinit const Operation kFoundPnlPathSection = Operation::of<kSectionSignature, &section_body>();
constinit const Operation kMembershipReferences =
    Operation::of<kReferencesSignature, &references_body>();

}  // namespace client_manifest::accepted
