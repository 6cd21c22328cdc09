// Walks again by the route that made the pin, and compares device and inode: the other fields of a
// directory change in normal use.
#include "pinned_root/root_proof.h"

#include "host/message.h"
#include "host/value.h"
#include "pinned_root/instance.h"
#include "system/calls.h"

namespace client_manifest::pinned_root {

using host::Arguments;
using host::Operation;
using host::Reference;
using host::take;
using system::OwnedDescriptor;

Wording root_became_unsafe() {
  return {PyExc_ValueError, "pinned root canonical path changed or became unsafe during operation"};
}

void require_pinned_directory(int pinned, const OwnedDescriptor& current) {
  const system::FileStat pinned_stat = system::stat_descriptor(pinned);
  const system::FileStat current_stat = system::stat_descriptor(current.get());
  if (!system::same_object(pinned_stat, current_stat)) {
    throw Refusal({PyExc_ValueError, "pinned root canonical path changed during operation"});
  }
}

namespace {

constexpr host::Signature kSignature{
    .name = "assert_root_unchanged",
    .kind = host::Kind::method,
    .documentation = "Require the configured path to still name the pinned directory inode.",
};

OwnedDescriptor walk_again(const Instance& root) {
  const Reference anchor = root.get(names()._anchor_descriptor);
  if (anchor.get() == Py_None) {
    return root.open_absolute_directory(root.get(names().path), Py_False);
  }
  const Reference given_label = root.get(names()._contained_root_label);
  const Reference label = host::is_true(given_label.get())
                              ? Reference::acquire(given_label.get())
                              : take(PyUnicode_FromString("contained root"));
  return root.open_directory_components(anchor, root.get(names()._anchor_components), label.get());
}

Reference body(PyObject* self, const Arguments& /*arguments*/) {
  const Instance root = through(self);
  OwnedDescriptor current;
  try {
    current = walk_again(root);
  } catch (const host::Error& error) {
    if (!error.matches(PyExc_OSError) && !error.matches(PyExc_ValueError)) throw;
    const Wording unsafe = root_became_unsafe();
    host::raise_from(error, unsafe.kind, unsafe.words);
  }
  host::guaranteed(
      [&] {
        const int pinned = root.require_descriptor();
        in_words([&] { require_pinned_directory(pinned, current); });
      },
      [&] { current.close(); });
  return Reference::acquire(Py_None);
}

}  // namespace

constinit const Operation kAssertRootUnchanged = Operation::of<kSignature, &body>();

}  // namespace client_manifest::pinned_root
