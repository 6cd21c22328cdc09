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

// Whether `words` stand in `text` from `start` on.
bool holds_at(PyObject* text, Py_ssize_t start, std::string_view words) {
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (PyUnicode_READ_CHAR(text, start + static_cast<Py_ssize_t>(i)) !=
        static_cast<Py_UCS4>(words[i])) {
      return false;
    }
  }
  return true;
}

bool begins(PyObject* text, std::string_view prefix) {
  const auto size = static_cast<Py_ssize_t>(prefix.size());
  return PyUnicode_GET_LENGTH(text) >= size && holds_at(text, 0, prefix);
}

bool ends(PyObject* text, std::string_view suffix) {
  const auto size = static_cast<Py_ssize_t>(suffix.size());
  const Py_ssize_t length = PyUnicode_GET_LENGTH(text);
  return length >= size && holds_at(text, length - size, suffix);
}

// The members collected so far, and who owns them.
class Membership {
 public:
  Membership() : references_(take(PyList_New(0))), seen_(take(PyDict_New())) {}

  void add(const Reference& raw_path, const Reference& section, const Reference& entity_id) {
    const Reference relative_path =
        documents::bound::validate_manifest_relative_path(raw_path.get());
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
  const auto& [entity_id, files_object] = entity;
  if (!bound::is_mapping(files_object.get())) {
    raise(PyExc_ValueError, "signals_index ", section, ".", entity_id, " must be an object");
  }
  const Reference no_files = take(PyList_New(0));
  const Reference raw_files = host::get(files_object.get(), names().files, no_files.get());
  if (PyList_Check(raw_files.get()) == 0) {
    raise(PyExc_ValueError, "signals_index ", section, ".", entity_id, ".files must be a list");
  }
  host::Iteration paths(raw_files.get());
  while (const Reference raw_path = paths.next()) membership.add(raw_path, section, entity_id);
}

}  // namespace

Reference found_pnl_path_section(PyObject* relative_path) {
  if (PyUnicode_Check(relative_path) == 0) raise(PyExc_TypeError, "relative path must be text");
  host::check(PyUnicode_READY(relative_path));
  if (begins(relative_path, "found_signals/") && ends(relative_path, "/signal_is/pnl.arrow")) {
    return Reference::acquire(names().found_signals);
  }
  if (begins(relative_path, "found_strategies/") && ends(relative_path, "/strategy_is/pnl.arrow")) {
    return Reference::acquire(names().found_strategies);
  }
  if (begins(relative_path, "useful_signals/") && (ends(relative_path, "/signal_os/pnl.arrow") ||
                                                   ends(relative_path, "/strategy_is/pnl.arrow"))) {
    return Reference::acquire(names().useful_signals);
  }
  return Reference::acquire(Py_None);
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
  const Reference now = global(names()._found_pnl_path_section);
  return kFoundPnlPathSection.is(now.get()) ? accepted::found_pnl_path_section(relative_path)
                                            : host::call(now, relative_path);
}

Reference membership_references(PyObject* document) {
  const Reference now = global(names()._membership_references);
  return kMembershipReferences.is(now.get()) ? accepted::membership_references(document)
                                             : host::call(now, document);
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
