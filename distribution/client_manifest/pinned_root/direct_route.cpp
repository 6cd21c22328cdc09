// Finds out whether everything on the way is ours, and strings the walks and proofs together.
#include "pinned_root/direct_route.h"

#include <limits>

#include "accepted/digest.h"
#include "accepted/file_identity.h"
#include "accepted/stat_key.h"
#include "documents/relative_path.h"
#include "host/method.h"
#include "host/value.h"
#include "pinned_root/hashing.h"
#include "pinned_root/leaf.h"
#include "pinned_root/leaf_proofs.h"
#include "pinned_root/opening.h"
#include "pinned_root/parent.h"
#include "pinned_root/pinning.h"
#include "pinned_root/reading.h"
#include "pinned_root/root_proof.h"
#include "pinned_root/walk.h"
#include "system/calls.h"

namespace client_manifest::pinned_root {
namespace {

using host::Operation;
using host::Reference;
using host::take;
using system::FileNames;
using system::FileStat;
using system::OwnedDescriptor;

bool keeps(PyObject* self, PyObject* name, const Operation& operation) {
  return host::Method(self, name).is(operation);
}

bool keeps_walks_and_proofs(PyObject* self) {
  // A look-up of the type's own could tell that a route was looked for.
  return Py_TYPE(self)->tp_getattro == PyObject_GenericGetAttr &&
         keeps(self, names().open_regular_file_for_read, kOpenRegularFileForRead) &&
         keeps(self, names()._open_parent, kOpenParent) &&
         keeps(self, names()._require_descriptor, kRequireDescriptor) &&
         keeps(self, names()._assert_path_matches_regular_file, kAssertPathMatchesRegularFile) &&
         keeps(self, names().assert_root_unchanged, kAssertRootUnchanged) &&
         keeps(self, names()._open_absolute_directory, kOpenAbsoluteDirectory) &&
         keeps(self, names()._open_directory_components, kOpenDirectoryComponents);
}

bool keeps_functions() {
  return accepted::bound::has_own_stat_key() &&
         documents::kValidateManifestRelativePath.is(
             global(names().validate_manifest_relative_path).get());
}

bool keeps_purpose(PyObject* self, Purpose purpose) {
  switch (purpose) {
    case Purpose::read:
      return keeps(self, names()._read_open_regular_file_with_stat, kReadOpenRegularFileWithStat);
    case Purpose::hash:
      return keeps(self, names().hash_open_regular_file, kHashOpenRegularFile) &&
             keeps(self, names().assert_open_regular_file_identity,
                   kAssertOpenRegularFileIdentity) &&
             accepted::has_own_file_identity() && accepted::has_own_digest();
    case Purpose::stat:
      break;
  }
  return true;
}

std::optional<int> plain_descriptor(const Reference& number) {
  if (PyLong_CheckExact(number.get()) == 0) return std::nullopt;
  int overflow = 0;
  const long value = PyLong_AsLongAndOverflow(number.get(), &overflow);
  if (overflow != 0 || value < 0 || value > std::numeric_limits<int>::max()) return std::nullopt;
  return static_cast<int>(value);
}

}  // namespace

DirectRoute::DirectRoute(const Subject& subject, int pinned)
    : subject_(subject), segments_(FileNames::split(subject.path)), pinned_(pinned) {}

std::optional<DirectRoute> DirectRoute::find(PyObject* self, const Subject& subject,
                                             Purpose purpose) {
  try {
    if (!keeps_walks_and_proofs(self) || !keeps_purpose(self, purpose) || !keeps_functions()) {
      return std::nullopt;
    }
    const Instance root = through(self);
    const std::optional<int> pinned = plain_descriptor(root.get(names()._descriptor));
    if (!pinned) return std::nullopt;
    DirectRoute route(subject, *pinned);
    if (!route.find_way_to_root(root)) return std::nullopt;
    return route;
  } catch (const host::Error& error) {
    // Whatever is out of order fails in its own time, when an operation comes upon it.
    if (!error.matches(PyExc_Exception)) throw;
    return std::nullopt;
  }
}

bool DirectRoute::find_way_to_root(const Instance& root) {
  const Reference anchor = root.get(names()._anchor_descriptor);
  if (anchor.get() == Py_None) {
    const Reference path = root.get(names().path);
    root_components_ = take(PySequence_Tuple(host::attribute(path.get(), names().parts).get()));
    root_segments_ = FileNames::of(root_components_.get(), 1);
    return true;
  }
  anchor_ = plain_descriptor(anchor);
  root_components_ = root.get(names()._anchor_components);
  root_label_ = root.get(names()._contained_root_label);
  if (!anchor_ || PyTuple_CheckExact(root_components_.get()) == 0 ||
      PyUnicode_CheckExact(root_label_.get()) == 0) {
    return false;
  }
  root_segments_ = FileNames::of(root_components_.get());
  if (!host::is_true(root_label_.get())) root_label_ = take(PyUnicode_FromString("contained root"));
  return true;
}

void DirectRoute::open() {
  OwnedDescriptor parent = walk_to_parent(pinned_, segments_, /*create=*/false, subject_);
  closed_in_any_case(parent,
                     [&] { file_ = open_leaf_for_read(parent.get(), segments_.last(), subject_); });
}

FileStat DirectRoute::look() const { return system::stat_descriptor(file_.get()); }

void DirectRoute::prove_path(const FileStat& expected) const {
  OwnedDescriptor parent = walk_to_parent(pinned_, segments_, /*create=*/false, subject_);
  closed_in_any_case(parent, [&] {
    const FileStat path_stat = look_at_open_leaf(parent.get(), segments_.last(), subject_);
    if (!system::same_key(path_stat, expected)) throw path_identity_changed(subject_);
  });
}

void DirectRoute::prove_root() const {
  OwnedDescriptor current;
  try {
    const Subject chain{.label = root_label_.get(), .components = root_components_.get()};
    current = anchor_ ? walk_from_anchor(*anchor_, root_segments_, chain)
                      : walk_from_top(root_segments_, /*create=*/false);
  } catch (...) {
    throw Refusal::in_flight().replaced_by(root_became_unsafe());
  }
  closed_in_any_case(current, [&] { require_pinned_directory(pinned_, current); });
}

}  // namespace client_manifest::pinned_root
