// What removals have in common: what is missing may be what the caller wants, which is asked for
// only when something is missing.
#pragma once

#include <optional>

#include "documents/relative_path.h"
#include "host/handling.h"
#include "host/value.h"

namespace client_manifest::pinned_root {

// Whether `error`, which is being handled, is the absence of something, and `missing_ok` says that
// nothing is wrong with that.
[[nodiscard]] bool is_excused(const host::Error& error, PyObject* missing_ok);

// What `find` gives, or nothing where something is missing and `missing_ok` excuses that.
template <class Find>
[[nodiscard]] auto unless_excused(PyObject* missing_ok, Find&& find)
    -> std::optional<decltype(find())> {
  try {
    return find();
  } catch (const host::Error& error) {
    if (!is_excused(error, missing_ok)) throw;
    return std::nullopt;
  }
}

// The frame of a removal, of any root: validates the path, opens its parent, lets `remove` work
// beneath it, which tells whether there was anything, and closes the parent on every exit.
template <class Root, class Remove>
[[nodiscard]] host::Reference removed_beneath_parent(const Root& root, PyObject* relative_path,
                                                     const char* label, PyObject* missing_ok,
                                                     Remove&& remove) {
  const host::Reference safe_path =
      documents::bound::validate_manifest_relative_path(relative_path);
  auto parent = unless_excused(missing_ok,
                               [&] { return root.open_parent(safe_path.get(), label, Py_False); });
  if (!parent) return host::truth(false);
  return host::truth(
      host::guaranteed([&] { return remove(*parent, safe_path.get()); }, [&] { parent->close(); }));
}

}  // namespace client_manifest::pinned_root
