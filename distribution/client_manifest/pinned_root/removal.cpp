// The entry is judged without being opened or followed. One that vanishes after it was judged was
// there: its absence then is a failure, whatever the caller takes absence for.
#include "pinned_root/removal.h"

#include <optional>

#include "documents/relative_path.h"
#include "host/handling.h"
#include "pinned_root/absence.h"
#include "pinned_root/instance.h"
#include "system/calls.h"
#include "system/file_names.h"

namespace client_manifest::pinned_root {
namespace {

using host::Arguments;
using host::Error;
using host::Operation;
using host::Pass;
using host::Reference;
using system::FileStat;

constexpr host::Signature kSignature{
    .name = "remove_regular_file",
    .kind = host::Kind::method,
    .parameters = {{{"relative_path"}, {"missing_ok", Pass::by_keyword}}},
};

Reference remove_regular_file(PyObject* self, const Arguments& arguments) {
  const Reference safe_path = documents::bound::validate_manifest_relative_path(arguments[0]);
  PyObject* const missing_ok = arguments[1];
  std::optional<Parent> parent = through(self).open_parent_to_remove_from(
      safe_path.get(), "contained removal file", missing_ok);
  if (!parent) return Reference::acquire(Py_False);

  const auto remove = [&] {
    const int directory = parent->descriptor.get();
    const auto name = system::FileNames::one(parent->name.get());
    FileStat file_stat;
    try {
      file_stat = system::stat_at(directory, name.last());
    } catch (const Error& error) {
      if (!is_excused(error, missing_ok)) throw;
      return Reference::acquire(Py_False);
    }
    in_words([&] {
      if (!file_stat.is_regular()) {
        throw Refusal({PyExc_ValueError, "contained removal file must be regular: "},
                      {.path = safe_path.get()});
      }
      system::unlink_at(directory, name.last());
      system::synchronize(directory);
    });
    return Reference::acquire(Py_True);
  };
  return host::guaranteed(remove, [&] { parent->descriptor.close(); });
}

}  // namespace

constinit const Operation kRemoveRegularFile = Operation::of<kSignature, &remove_regular_file>();

}  // namespace client_manifest::pinned_root
