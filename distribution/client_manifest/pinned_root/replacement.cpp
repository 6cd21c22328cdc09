// The source is held open from its proof to the end, so that its inode is known and stays alive;
// the rename goes by name; then what the destination holds is compared with what was held. What is
// not that file is taken away again.
//
// Replacing and moving are this one algorithm in two sets of words, but for the last fsync.
#include "pinned_root/replacement.h"

#include "documents/relative_path.h"
#include "host/handling.h"
#include "pinned_root/instance.h"
#include "system/calls.h"
#include "system/file_names.h"

namespace client_manifest::pinned_root {
namespace {

using host::Arguments;
using host::Kind;
using host::Operation;
using host::Reference;
using system::FileNames;
using system::FileStat;
using system::OwnedDescriptor;

// What sets the twins apart.
struct Twin {
  const char* source_label = nullptr;
  const char* destination_label = nullptr;
  Wording not_regular;
  Wording changed;
  bool syncs_the_destination_always =
      false;  // or only where its descriptor is not that of the source
};

Twin replacement() {
  return {
      .source_label = "contained replacement source",
      .destination_label = "contained replacement destination",
      .not_regular = {PyExc_ValueError, "contained replacement source must be regular: "},
      .changed = {PyExc_ValueError, "contained replacement source changed before publish: "},
      .syncs_the_destination_always = false,
  };
}

Twin move() {
  return {
      .source_label = "contained move source",
      .destination_label = "contained move destination",
      .not_regular = {PyExc_ValueError, "contained move source must be regular: "},
      .changed = {PyExc_ValueError, "contained move source changed before publish: "},
      .syncs_the_destination_always = true,
  };
}

// A contained path beneath the root that owns it.
struct Place {
  Instance root;
  PyObject* path;
};

void transfer(const Place& from, const Place& to, const Twin& twin) {
  const Reference source = documents::bound::validate_manifest_relative_path(from.path);
  const Reference destination = documents::bound::validate_manifest_relative_path(to.path);
  const Subject subject{.path = source.get()};

  Parent source_parent = from.root.open_parent(source.get(), twin.source_label, Py_False);
  const FileNames source_name = FileNames::one(source_parent.name.get());
  Parent destination_parent;
  OwnedDescriptor source_descriptor;
  FileStat source_stat;

  const auto hold_source = [&] {
    source_descriptor = system::open_source_at(source_parent.descriptor.get(), source_name.last());
    source_stat = system::stat_descriptor(source_descriptor.get());
    if (!source_stat.is_regular()) throw Refusal(twin.not_regular, subject);
  };

  const auto publish = [&](const FileNames& destination_name) {
    const int source_directory = source_parent.descriptor.get();
    const int destination_directory = destination_parent.descriptor.get();
    system::rename_at(source_directory, source_name.last(), destination_directory,
                      destination_name.last());
    const FileStat published = system::stat_at(destination_directory, destination_name.last());
    if (!published.is_regular() || !system::same_object(published, source_stat)) {
      system::unlink_at(destination_directory, destination_name.last());
      system::synchronize(destination_directory);
      throw Refusal(twin.changed, subject);
    }
    system::synchronize(source_directory);
    if (twin.syncs_the_destination_always || destination_directory != source_directory) {
      system::synchronize(destination_directory);
    }
  };

  const auto clean_up = [&] {
    source_descriptor.close();
    destination_parent.descriptor.close();
    source_parent.descriptor.close();
  };

  host::guaranteed(
      [&] {
        in_words(hold_source);
        destination_parent =
            to.root.open_parent(destination.get(), twin.destination_label, Py_True);
        to.root.assert_replaceable_leaf(destination_parent, destination.get(), Py_True);
        const FileNames destination_name = FileNames::one(destination_parent.name.get());
        in_words([&] { publish(destination_name); });
      },
      [&] { in_words(clean_up); });
}

constexpr host::Signature kReplaceSignature{
    .name = "replace_regular_file",
    .kind = Kind::method,
    .parameters = {{{"source_relative_path"}, {"destination_relative_path"}}},
};

Reference replace_regular_file(PyObject* self, const Arguments& arguments) {
  const Instance root = through(self);
  transfer({.root = root, .path = arguments[0]}, {.root = root, .path = arguments[1]},
           replacement());
  return Reference::acquire(Py_None);
}

constexpr host::Signature kMoveSignature{
    .name = "move_regular_file_to",
    .kind = Kind::method,
    .parameters = {{{"source_relative_path"}, {"destination_root"}, {"destination_relative_path"}}},
};

Reference move_regular_file_to(PyObject* self, const Arguments& arguments) {
  transfer({.root = through(self), .path = arguments[0]},
           {.root = through(arguments[1]), .path = arguments[2]}, move());
  return Reference::acquire(Py_None);
}

}  // namespace

constinit const Operation kReplaceRegularFile =
    Operation::of<kReplaceSignature, &replace_regular_file>();
constinit const Operation kMoveRegularFileTo =
    Operation::of<kMoveSignature, &move_regular_file_to>();

}  // namespace client_manifest::pinned_root
