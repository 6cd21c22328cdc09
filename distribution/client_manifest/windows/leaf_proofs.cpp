// Proves leaves and ancestors: what may be replaced, what a path still names, what has gone.
#include "accepted/stat_key.h"
#include "host/handling.h"
#include "host/message.h"
#include "host/value.h"
#include "windows/root.h"
#include "windows/root_operations.h"

namespace client_manifest::windows {
namespace {

using host::Arguments;
using host::Error;
using host::Kind;
using host::Operation;
using host::Pass;
using host::raise;
using host::raise_from;
using host::Reference;

constexpr host::Signature kReplaceableSignature{
    .name = "_assert_replaceable_leaf",
    .kind = Kind::method,
    .parameters = {{{"parent_descriptor"},
                    {"name"},
                    {"safe_path", Pass::by_keyword},
                    {"allow_replace", Pass::by_keyword}}},
};

Reference assert_replaceable_leaf(PyObject* self, const Arguments& arguments) {
  PyObject* const safe_path = arguments[2];
  const Root root(self);
  OwnedHandle entry;
  try {
    entry = root.boundary().open_entry(arguments[0], arguments[1], /*deletes=*/false);
  } catch (const Error& error) {
    if (!error.matches(PyExc_FileNotFoundError)) throw;
    return Reference::acquire(Py_None);
  }
  host::guaranteed(
      [&] {
        root.require_safe_regular(entry, safe_path, "contained file destination");
        if (!host::is_true(arguments[3])) {
          raise(PyExc_FileExistsError, "contained file already exists: ", safe_path);
        }
      },
      [&] { entry.close(); });
  return Reference::acquire(Py_None);
}

constexpr host::Signature kPathSignature{
    .name = "_assert_path_matches_regular_file",
    .kind = Kind::method,
    .parameters = {{{"relative_path"},
                    {"label", Pass::by_keyword},
                    {"expected_stat", Pass::by_keyword}}},
};

OwnedHandle open_named_file(const Root& root, const Parent& parent, PyObject* relative_path,
                            PyObject* label) {
  try {
    return root.boundary().open_regular(parent.handle, parent.name.get(), {});
  } catch (const Error& error) {
    if (!error.matches(PyExc_FileNotFoundError)) throw;
    raise_from(error, PyExc_ValueError, label, " path changed while open: ", relative_path);
  }
}

Reference assert_path_matches_regular_file(PyObject* self, const Arguments& arguments) {
  PyObject* const relative_path = arguments[0];
  PyObject* const label = arguments[1];
  const Root root(self);
  Parent parent = root.open_parent(relative_path, label, Py_False);
  OwnedHandle opened;
  host::guaranteed(
      [&] {
        opened = open_named_file(root, parent, relative_path, label);
        root.require_safe_regular(opened, relative_path, label);
        const Reference path_stat = root.boundary().stat(opened);
        const Reference found = accepted::bound::regular_file_stat_key(path_stat.get());
        const Reference expected = accepted::bound::regular_file_stat_key(arguments[2]);
        if (host::differ(found.get(), expected.get())) {
          raise(PyExc_ValueError, label, " path identity changed while open: ", relative_path);
        }
      },
      [&] {
        close_all({&opened, &parent.handle});
      });
  return Reference::acquire(Py_None);
}

constexpr host::Signature kParentSignature{
    .name = "_assert_parent_path_matches",
    .kind = Kind::method,
    .parameters = {{{"relative_path"},
                    {"expected_parent", Pass::by_keyword},
                    {"label", Pass::by_keyword}}},
};

Reference assert_parent_path_matches(PyObject* self, const Arguments& arguments) {
  PyObject* const relative_path = arguments[0];
  PyObject* const label = arguments[2];
  constexpr const char* changed = " parent or ancestor changed: ";
  const Root root(self);
  OwnedHandle current_parent;
  try {
    current_parent = std::move(root.open_parent(relative_path, label, Py_False).handle);
  } catch (const Error& error) {
    if (!error.matches(PyExc_OSError) && !error.matches(PyExc_ValueError)) throw;
    raise_from(error, PyExc_ValueError, label, changed, relative_path);
  }
  host::guaranteed(
      [&] {
        const Reference found = root.boundary().identity(current_parent.get());
        if (host::differ(found.get(), root.boundary().identity(arguments[1]).get())) {
          raise(PyExc_ValueError, label, changed, relative_path);
        }
      },
      [&] { current_parent.close(); });
  return Reference::acquire(Py_None);
}

constexpr host::Signature kDirectorySignature{
    .name = "_assert_directory_path_matches",
    .kind = Kind::method,
    .parameters = {{{"relative_path"},
                    {"expected_directory", Pass::by_keyword},
                    {"label", Pass::by_keyword}}},
};

Reference assert_directory_path_matches(PyObject* self, const Arguments& arguments) {
  PyObject* const relative_path = arguments[0];
  PyObject* const label = arguments[2];
  constexpr const char* changed = " or ancestor changed: ";
  const Root root(self);
  const bool is_below = host::is_true(relative_path);
  const Reference shown = is_below ? Reference::acquire(relative_path) : host::text(".");
  OwnedHandle current;
  Parent parent;

  const auto compare = [&] {
    if (is_below) {
      parent = root.open_parent(relative_path, label, Py_False);
      current = root.boundary().open_directory(parent.handle, parent.name.get(), Py_False);
      root.require_safe_directory(current, relative_path);
    } else {
      current = root.boundary().duplicate(root.require_descriptor().get());
    }
    const Reference found = root.boundary().identity(current.get());
    if (host::differ(found.get(), root.boundary().identity(arguments[1]).get())) {
      raise(PyExc_ValueError, label, changed, shown);
    }
  };
  host::guaranteed(
      [&] {
        try {
          compare();
        } catch (const Error& error) {
          if (!error.matches(PyExc_OSError)) throw;
          raise_from(error, PyExc_ValueError, label, changed, shown);
        }
      },
      [&] {
        close_all({&current, &parent.handle});
      });
  return Reference::acquire(Py_None);
}

constexpr host::Signature kMissingSignature{
    .name = "_assert_leaf_missing",
    .kind = Kind::method,
    .parameters = {{{"relative_path"}, {"label", Pass::by_keyword}}},
};

Reference assert_leaf_missing(PyObject* self, const Arguments& arguments) {
  PyObject* const relative_path = arguments[0];
  PyObject* const label = arguments[1];
  const Root root(self);
  Parent parent;
  OwnedHandle entry;

  const auto look = [&] {
    parent = root.open_parent(relative_path, label, Py_False);
    try {
      entry = root.boundary().open_entry(parent.handle.get(), parent.name.get(),
                                         /*deletes=*/false);
    } catch (const Error& error) {
      if (error.matches(PyExc_FileNotFoundError)) return;
      throw;
    }
    raise(PyExc_ValueError, label, " leaf path changed during delete: ", relative_path);
  };
  host::guaranteed(
      [&] {
        try {
          look();
        } catch (const Error& error) {
          if (!error.matches(PyExc_OSError)) throw;
          raise_from(error, PyExc_ValueError, label,
                     " parent or ancestor changed during delete: ", relative_path);
        }
      },
      [&] {
        close_all({&entry, &parent.handle});
      });
  return Reference::acquire(Py_None);
}

}  // namespace

constinit const Operation kWindowsAssertReplaceableLeaf =
    Operation::of<kReplaceableSignature, &assert_replaceable_leaf>();
constinit const Operation kWindowsAssertPathMatchesRegularFile =
    Operation::of<kPathSignature, &assert_path_matches_regular_file>();
constinit const Operation kAssertParentPathMatches =
    Operation::of<kParentSignature, &assert_parent_path_matches>();
constinit const Operation kAssertDirectoryPathMatches =
    Operation::of<kDirectorySignature, &assert_directory_path_matches>();
constinit const Operation kAssertLeafMissing =
    Operation::of<kMissingSignature, &assert_leaf_missing>();

}  // namespace client_manifest::windows
