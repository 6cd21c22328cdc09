// A name that is listed has been opened as a real directory; a directory that is made is durable
// before it is used.
#include "pinned_root/directories.h"

#include <string>
#include <vector>

#include "documents/relative_path.h"
#include "host/interpreter_lock.h"
#include "host/text_form.h"
#include "pinned_root/instance.h"
#include "pinned_root/walk.h"
#include "system/calls.h"
#include "system/directory_listing.h"
#include "system/file_names.h"

namespace client_manifest::pinned_root {
namespace {

using host::Arguments;
using host::Kind;
using host::Operation;
using host::Reference;
using system::Failure;
using system::OwnedDescriptor;

constexpr host::Signature kListSignature{.name = "list_directory_names", .kind = Kind::method};

// Whether the entry can be proved right now to be a real directory.
bool opens_as_directory(const OwnedDescriptor& parent, const char* name) {
  OwnedDescriptor child;
  try {
    child = system::open_directory_at(parent.get(), name);
  } catch (const Failure& failure) {
    if (!failure.is_os_error()) throw;
    return false;
  }
  child.close();
  return true;
}

Reference list_directory_names(PyObject* self, const Arguments& /*arguments*/) {
  const int pinned = through(self).require_descriptor();
  std::vector<std::string> found;
  in_words([&] {
    OwnedDescriptor directory = system::duplicate(pinned);
    closed_in_any_case(directory, [&] {
      host::SignalPoll signals;
      system::DirectoryListing listing(directory.get());
      while (listing.next()) {
        signals.step();
        if (!listing.is_directory() || !opens_as_directory(directory, listing.name())) continue;
        host::append_text_form_of_name(found.emplace_back(), listing.name());
      }
    });
  });
  return host::sorted_texts(std::move(found));
}

constexpr host::Signature kEnsureSignature{
    .name = "ensure_directory",
    .kind = Kind::method,
    .parameters = {{{"relative_path"}}},
};

// Unlike a walk to a parent that makes what is missing, this one goes down the last segment too,
// takes the open itself for the proof, and has one set of words for whatever keeps it from opening.
Reference ensure_directory(PyObject* self, const Arguments& arguments) {
  const Reference safe_path = documents::bound::validate_manifest_relative_path(arguments[0]);
  const auto parts = system::FileNames::split(safe_path.get());
  const int pinned = through(self).require_descriptor();
  const Clauses unsafe = any_failure(
      {PyExc_ValueError, "contained directory has a symlink or non-directory segment: "});
  const Subject subject{.path = safe_path.get()};
  in_words([&] {
    OwnedDescriptor current = system::duplicate(pinned);
    closed_in_any_case(current, [&] {
      for (std::size_t i = 0; i < parts.size(); ++i) {
        const char* const part = parts.at(i);
        make_durable_directory(current.get(), part);
        OwnedDescriptor next_descriptor = open_directory(current.get(), part, unsafe, subject);
        current.close();
        current = std::move(next_descriptor);
      }
    });
  });
  return Reference::acquire(Py_None);
}

}  // namespace

constinit const Operation kListDirectoryNames =
    Operation::of<kListSignature, &list_directory_names>();
constinit const Operation kEnsureDirectory = Operation::of<kEnsureSignature, &ensure_directory>();

}  // namespace client_manifest::pinned_root
