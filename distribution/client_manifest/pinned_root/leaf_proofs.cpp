// The path proof is a fresh walk, so that it proves the parents as well as the leaf, and compares
// the whole stat key: a file that was touched, grown or swapped fails it.
#include "pinned_root/leaf_proofs.h"

#include "accepted/stat_key.h"
#include "host/handling.h"
#include "host/message.h"
#include "host/value.h"
#include "pinned_root/instance.h"
#include "pinned_root/leaf.h"
#include "system/calls.h"
#include "system/file_names.h"

namespace client_manifest::pinned_root {
namespace {

using host::Arguments;
using host::Kind;
using host::Operation;
using host::Pass;
using host::raise;
using host::Reference;
using system::FileNames;

constexpr host::Signature kReplaceableSignature{
    .name = "_assert_replaceable_leaf",
    .kind = Kind::static_method,
    .parameters = {{{"parent_descriptor"},
                    {"name"},
                    {"safe_path", Pass::by_keyword},
                    {"allow_replace", Pass::by_keyword}}},
};

Reference replaceable_body(PyObject* /*type*/, const Arguments& arguments) {
  assert_replaceable_leaf(host::as_int(arguments[0]), arguments[1], arguments[2], arguments[3]);
  return Reference::acquire(Py_None);
}

constexpr host::Signature kPathSignature{
    .name = "_assert_path_matches_regular_file",
    .kind = Kind::method,
    .parameters = {{{"relative_path"},
                    {"label", Pass::by_keyword},
                    {"expected_stat", Pass::by_keyword}}},
    .documentation = "Require the current contained path to retain the opened file identity.",
};

Reference assert_path_matches_regular_file(PyObject* self, const Arguments& arguments) {
  const Subject subject{.label = arguments[1], .path = arguments[0]};
  Parent parent = through(self).open_parent(subject.path, subject.label, Py_False);
  host::guaranteed(
      [&] {
        const FileNames name = FileNames::one(parent.name.get());
        const system::FileStat path_stat = in_words(
            [&] { return look_at_open_leaf(parent.descriptor.get(), name.last(), subject); });
        if (accepted::bound::stat_keys_differ(path_stat, arguments[2])) {
          throw path_identity_changed(subject).in_words();
        }
      },
      [&] { parent.descriptor.close(); });
  return Reference::acquire(Py_None);
}

}  // namespace

void assert_replaceable_leaf(int parent, PyObject* name, PyObject* safe_path,
                             PyObject* allow_replace) {
  const FileNames leaf = FileNames::one(name);
  const auto entry_stat = system::stat_if_present_at(parent, leaf.last());
  if (!entry_stat) return;
  if (!entry_stat->is_regular()) {
    raise(PyExc_ValueError,
          "contained file destination is a symlink or non-regular file: ", safe_path);
  }
  if (!host::is_true(allow_replace)) {
    raise(PyExc_FileExistsError, "contained file already exists: ", safe_path);
  }
}

constinit const Operation kAssertReplaceableLeaf =
    Operation::of<kReplaceableSignature, &replaceable_body>();
constinit const Operation kAssertPathMatchesRegularFile =
    Operation::of<kPathSignature, &assert_path_matches_regular_file>();

}  // namespace client_manifest::pinned_root
