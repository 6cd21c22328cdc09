// The entry is judged without being opened or followed. One that vanishes after it was judged was
// there: its absence then is a failure, whatever the caller takes absence for.
#include "pinned_root/removal.h"

#include "pinned_root/absence.h"
#include "pinned_root/instance.h"
#include "system/calls.h"
#include "system/file_names.h"

namespace client_manifest::pinned_root {
namespace {

using host::Arguments;
using host::Operation;
using host::Pass;
using host::Reference;

constexpr host::Signature kSignature{
    .name = "remove_regular_file",
    .kind = host::Kind::method,
    .parameters = {{{"relative_path"}, {"missing_ok", Pass::by_keyword}}},
};

Reference remove_regular_file(PyObject* self, const Arguments& arguments) {
  PyObject* const missing_ok = arguments[1];
  const auto remove = [&](const Parent& parent, PyObject* safe_path) {
    const int directory = parent.descriptor.get();
    const auto name = system::FileNames::one(parent.name.get());
    const auto file_stat =
        unless_excused(missing_ok, [&] { return system::stat_at(directory, name.last()); });
    if (!file_stat) return false;
    in_words([&] {
      if (!file_stat->is_regular()) {
        throw Refusal({PyExc_ValueError, "contained removal file must be regular: "},
                      {.path = safe_path});
      }
      system::unlink_at(directory, name.last());
      system::synchronize(directory);
    });
    return true;
  };
  return removed_beneath_parent(through(self), arguments[0], "contained removal file", missing_ok,
                                remove);
}

}  // namespace

constinit const Operation kRemoveRegularFile = Operation::of<kSignature, &remove_regular_file>();

}  // namespace client_manifest::pinned_root
