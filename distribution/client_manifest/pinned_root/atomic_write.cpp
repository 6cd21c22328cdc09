// The bytes are on the disk before the name changes, and the name is before the caller goes on.
//
// The new content always comes as a new inode, so that a file which shares the old one through a
// hard link keeps its content. The staged file is held open from its proof to the end: no other
// file can have its identity while it is.
#include "pinned_root/atomic_write.h"

#include <span>

#include "documents/relative_path.h"
#include "host/handling.h"
#include "host/interpreter_lock.h"
#include "host/message.h"
#include "pinned_root/instance.h"
#include "pinned_root/staging_names.h"
#include "system/calls.h"
#include "system/file_names.h"

namespace client_manifest::pinned_root {
namespace {

using host::Arguments;
using host::Operation;
using host::Pass;
using host::raise;
using host::Reference;
using system::FileNames;
using system::FileStat;
using system::OwnedDescriptor;

constexpr host::Signature kSignature{
    .name = "write_atomic",
    .kind = host::Kind::method,
    .parameters = {{{"relative_path"}, {"payload"}, {"allow_replace", Pass::by_keyword}}},
};

std::span<const std::byte> view_of(PyObject* payload) {
  return std::as_bytes(
      std::span(PyBytes_AS_STRING(payload), static_cast<std::size_t>(PyBytes_GET_SIZE(payload))));
}

void write_all(int descriptor, std::span<const std::byte> view) {
  while (!view.empty()) {
    const std::size_t written = system::write_some(descriptor, view);
    if (written == 0) {
      throw Refusal({PyExc_OSError, "short write while staging contained file"});
    }
    view = view.subspan(written);
    if (!view.empty()) host::run_signal_handlers();
  }
}

Reference write_atomic(PyObject* self, const Arguments& arguments) {
  const Reference safe_path = documents::bound::validate_manifest_relative_path(arguments[0]);
  PyObject* const payload = arguments[1];
  PyObject* const allow_replace = arguments[2];
  if (PyBytes_Check(payload) == 0) {
    raise(PyExc_TypeError, "contained file payload must be bytes");
  }
  const Instance root = through(self);
  const Subject subject{.path = safe_path.get()};
  Parent parent = root.open_parent(safe_path.get(), "contained file destination", Py_True);
  const int directory = parent.descriptor.get();
  const FileNames leaf = FileNames::one(parent.name.get());
  // A name that the system cannot have is refused here, before anything is staged under it.
  const FileNames staged_leaf = FileNames::one(temporary_name(parent.name).get());
  const char* const temporary = staged_leaf.last();
  const char* const name = leaf.last();

  OwnedDescriptor temporary_descriptor;
  OwnedDescriptor temporary_source_descriptor;
  FileStat source_stat;

  const auto stage = [&] {
    temporary_descriptor = system::create_for_write_at(directory, temporary);
    write_all(temporary_descriptor.get(), view_of(payload));
    system::synchronize(temporary_descriptor.get());
    const FileStat staged_stat = system::stat_descriptor(temporary_descriptor.get());
    temporary_descriptor.close();

    temporary_source_descriptor = system::open_source_at(directory, temporary);
    source_stat = system::stat_descriptor(temporary_source_descriptor.get());
    if (!source_stat.is_regular() || !system::same_object(source_stat, staged_stat)) {
      throw Refusal({PyExc_ValueError, "contained file staging leaf changed before publish: "},
                    subject);
    }
  };

  const auto publish = [&] {
    system::rename_at(directory, temporary, directory, name);
    const FileStat final_stat = system::stat_at(directory, name);
    if (!final_stat.is_regular() || !system::same_object(final_stat, source_stat)) {
      // Whatever was put there must not pass for what was written.
      system::unlink_at(directory, name);
      system::synchronize(directory);
      throw Refusal({PyExc_ValueError, "contained file staging leaf changed during publish: "},
                    subject);
    }
    system::synchronize(directory);
  };

  // One sequence without a protection of its own: what comes after a failing step stays undone.
  const auto clean_up = [&] {
    try {
      temporary_descriptor.close();
      temporary_source_descriptor.close();
      system::unlink_if_present_at(directory, temporary);
      parent.descriptor.close();
    } catch (...) {
      static_cast<void>(temporary_source_descriptor.release());
      static_cast<void>(parent.descriptor.release());
      throw;
    }
  };

  host::guaranteed(
      [&] {
        root.assert_replaceable_leaf(parent, safe_path.get(), allow_replace);
        in_words(stage);
        root.assert_replaceable_leaf(parent, safe_path.get(), allow_replace);
        in_words(publish);
      },
      [&] { in_words(clean_up); });
  return Reference::acquire(Py_None);
}

}  // namespace

constinit const Operation kWriteAtomic = Operation::of<kSignature, &write_atomic>();

}  // namespace client_manifest::pinned_root
