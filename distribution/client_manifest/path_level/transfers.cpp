// Copy and link go by a transfer name beside the destination, which is published by a rename and
// is gone on every exit.
//
// A destination may share the source's inode after a link. That is safe as long as files are
// written anew, under another inode, and not changed in place.
#include "path_level/transfers.h"

#include "documents/relative_path.h"
#include "host/handling.h"
#include "host/message.h"
#include "host/value.h"
#include "path_level/one_shot.h"
#include "pinned_root/chunk_size.h"
#include "pinned_root/instance.h"
#include "pinned_root/staging_names.h"
#include "system/calls.h"
#include "system/file_names.h"
#include "system/phase.h"

namespace client_manifest::path_level {
namespace {

using documents::bound::validate_manifest_relative_path;
using host::Arguments;
using host::Error;
using host::Operation;
using host::Reference;
using pinned_root::Parent;
using pinned_root::through;
using system::FileNames;

// A contained path beneath a root that is not pinned yet.
struct Place {
  PyObject* root;
  PyObject* relative_path;
};

// Enters both roots; the destination is released first. A missing destination root is made.
template <class Block>
Reference with_both(const Place& from, const Place& to, Block&& block) {
  return host::with(pin(from.root).get(), [&](PyObject* source) {
    return host::with(pin_or_create(to.root).get(),
                      [&](PyObject* destination) { return block(source, destination); });
  });
}

void prove_both(PyObject* source, PyObject* destination) {
  prove(source);
  prove(destination);
}

void publish(PyObject* destination, const Reference& temporary_path, PyObject* relative_path) {
  static_cast<void>(
      host::call_method(destination, names().replace_regular_file, temporary_path, relative_path));
}

void remove_if_left(PyObject* destination, const Reference& temporary_path) {
  static_cast<void>(host::call_method_with_keywords(
      destination, names().remove_regular_file, keywords().missing_ok, temporary_path, Py_True));
}

Reference move(const Place& from, const Place& to) {
  return with_both(from, to, [&](PyObject* source, PyObject* destination) {
    static_cast<void>(host::call_method(source, names().move_regular_file_to, from.relative_path,
                                        destination, to.relative_path));
    prove_both(source, destination);
    return Reference::acquire(Py_None);
  });
}

// Empties the file, for a leftover of the same name is not refused, and fills it; the bytes are on
// the disk before it is closed. Memory is one chunk.
void stream(PyObject* source_file, PyObject* destination_file) {
  const Reference chunk_bytes = host::integer(pinned_root::kChunkBytes);
  static_cast<void>(
      host::call_method(destination_file, names().seek, host::integer(std::int64_t{0})));
  static_cast<void>(host::call_method(destination_file, names().truncate));
  for (;;) {
    host::run_signal_handlers();
    const Reference chunk = host::call_method(source_file, names().read, chunk_bytes);
    if (!host::is_true(chunk.get())) break;
    static_cast<void>(host::call_method(destination_file, names().write, chunk));
  }
  static_cast<void>(host::call_method(destination_file, names().flush));
  system::synchronize(host::as_int(host::call_method(destination_file, names().fileno).get()));
}

void stream_to(PyObject* source, PyObject* source_path, PyObject* destination,
               const Reference& temporary_path) {
  const Reference label = host::text("contained copy source");
  const Reference source_file =
      through(source).open_regular_file_for_read(source_path, label.get());
  static_cast<void>(host::with(source_file.get(), [&](PyObject* reader) {
    const Reference destination_file =
        host::call_method_with_keywords(destination, names().open_regular_file_for_update,
                                        keywords().create, temporary_path, Py_True);
    return host::with(destination_file.get(), [&](PyObject* writer) {
      stream(reader, writer);
      return Reference::acquire(Py_None);
    });
  }));
}

Reference copy(const Place& from, const Place& to) {
  const Reference temporary_path =
      pinned_root::transfer_path(validate_manifest_relative_path(to.relative_path));
  return with_both(from, to, [&](PyObject* source, PyObject* destination) {
    host::guaranteed(
        [&] {
          stream_to(source, from.relative_path, destination, temporary_path);
          publish(destination, temporary_path, to.relative_path);
          prove_both(source, destination);
        },
        [&] { remove_if_left(destination, temporary_path); });
    return Reference::acquire(Py_None);
  });
}

Reference link_or_copy(const Place& from, const Place& to) {
  const Reference safe_source = validate_manifest_relative_path(from.relative_path);
  const Reference safe_destination = validate_manifest_relative_path(to.relative_path);
  const Reference temporary_path = pinned_root::transfer_path(safe_destination);
  return with_both(from, to, [&](PyObject* source, PyObject* destination) {
    Parent source_parent;
    Parent destination_parent;

    const auto require_regular_source = [&] {
      const FileNames source_name = FileNames::one(source_parent.name.get());
      const system::FileStat source_stat =
          system::stat_at(source_parent.descriptor.get(), source_name.last());
      if (!source_stat.is_regular()) {
        host::raise(PyExc_ValueError,
                    "contained link source must be a regular file: ", safe_source);
      }
    };

    const auto link = [&] {
      const FileNames source_name = FileNames::one(source_parent.name.get());
      const FileNames temporary_name = FileNames::one(destination_parent.name.get());
      system::link_at(source_parent.descriptor.get(), source_name.last(),
                      destination_parent.descriptor.get(), temporary_name.last());
    };

    const auto carry_over = [&] {
      source_parent =
          through(source).open_parent(safe_source.get(), "contained link source", Py_False);
      require_regular_source();
      destination_parent =
          through(destination)
              .open_parent(temporary_path.get(), "contained link destination", Py_True);
      try {
        link();
      } catch (const Error& error) {
        if (!error.matches(PyExc_OSError)) throw;
        // Whatever keeps the link from being made, the content can still be copied.
        const host::Handling handling(error);
        static_cast<void>(host::call(global(names().copy_contained_regular_file), from.root,
                                     safe_source, to.root, safe_destination));
        return host::text("copied");
      }
      publish(destination, temporary_path, safe_destination.get());
      prove_both(source, destination);
      return host::text("linked");
    };

    return host::guaranteed(carry_over, [&] {
      if (destination_parent.descriptor) {
        remove_if_left(destination, temporary_path);
        destination_parent.descriptor.close();
      }
      source_parent.descriptor.close();
    });
  });
}

constexpr host::Signature signature_of(const char* name) {
  return {
      .name = name,
      .parameters = {{{"source_root"},
                      {"source_relative_path"},
                      {"destination_root"},
                      {"destination_relative_path"}}},
  };
}

constexpr host::Signature kMoveSignature = signature_of("move_contained_regular_file");
constexpr host::Signature kCopySignature = signature_of("copy_contained_regular_file");
constexpr host::Signature kLinkOrCopySignature =
    signature_of("link_or_copy_contained_regular_file");

template <Reference (*carry)(const Place& from, const Place& to)>
Reference carried(PyObject* /*module*/, const Arguments& arguments) {
  return carry({.root = arguments[0], .relative_path = arguments[1]},
               {.root = arguments[2], .relative_path = arguments[3]});
}

}  // namespace

constinit const Operation kMoveContainedRegularFile =
    Operation::of<kMoveSignature, &carried<&move>>();
constinit const Operation kCopyContainedRegularFile =
    Operation::of<kCopySignature, &carried<&copy>>();
constinit const Operation kLinkOrCopyContainedRegularFile =
    Operation::of<kLinkOrCopySignature, &carried<&link_or_copy>>();

}  // namespace client_manifest::path_level
