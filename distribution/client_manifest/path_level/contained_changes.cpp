// Two of them make a missing root, and tell where what they made lies; the others refuse one, also
// where a missing file is no failure.
#include "path_level/contained_changes.h"

#include "host/message.h"
#include "host/value.h"
#include "path_level/one_shot.h"

namespace client_manifest::path_level {
namespace {

using host::Arguments;
using host::Operation;
using host::Parameter;
using host::Pass;
using host::Reference;
using host::take;

constexpr Parameter kMissingOk{"missing_ok", Pass::by_keyword, "True"};
constexpr Parameter kPreserve{"preserve_relative_paths", Pass::by_keyword};

// `os.path.join(os.fspath(pinned.path), *relative_path.split("/"))`: the location by its name, with
// nothing resolved.
Reference joined_location(PyObject* pinned, PyObject* relative_path) {
  const Reference os = global(names().os);
  const Reference os_path = host::attribute(os.get(), names().path);
  const Reference join = host::attribute(os_path.get(), names().join);
  const Reference root =
      host::call_method(os.get(), names().fspath, host::attribute(pinned, names().path));
  const Reference segments = host::call_method(relative_path, names().split, host::text("/"));
  const Reference parts = take(PyList_New(0));
  host::check(PyList_Append(parts.get(), root.get()));
  host::check(PyList_SetSlice(parts.get(), 1, 1, segments.get()));
  return take(PyObject_CallObject(join.get(), take(PyList_AsTuple(parts.get())).get()));
}

constexpr host::Signature kWriteSignature{
    .name = "write_contained_regular_file",
    .parameters =
        {{{"root"}, {"relative_path"}, {"payload"}, {"allow_replace", Pass::by_keyword, "True"}}},
};

Reference write_contained_regular_file(PyObject* /*module*/, const Arguments& arguments) {
  PyObject* const relative_path = arguments[1];
  return host::with(pin_or_create(arguments[0]).get(), [&](PyObject* pinned) {
    static_cast<void>(host::call_method_with_keywords(pinned, names().write_atomic,
                                                      keywords().allow_replace, relative_path,
                                                      arguments[2], arguments.get(3, Py_True)));
    prove(pinned);
    return joined_location(pinned, relative_path);
  });
}

constexpr host::Signature kRemoveSignature{
    .name = "remove_contained_regular_file",
    .parameters = {{{"root"}, {"relative_path"}, kMissingOk}},
};

Reference remove_contained_regular_file(PyObject* /*module*/, const Arguments& arguments) {
  return one_shot(pin(arguments[0]), [&](PyObject* pinned) {
    return host::call_method_with_keywords(pinned, names().remove_regular_file,
                                           keywords().missing_ok, arguments[1],
                                           arguments.get(2, Py_True));
  });
}

constexpr host::Signature kCleanupSignature{
    .name = "cleanup_contained_regular_files",
    .parameters = {{{"root"}, {"suffix", Pass::by_keyword}, kPreserve}},
};

Reference cleanup_contained_regular_files(PyObject* /*module*/, const Arguments& arguments) {
  return one_shot(pin(arguments[0]), [&](PyObject* pinned) {
    return host::call_method_with_keywords(pinned, names().remove_regular_files_with_suffix,
                                           keywords().preserve_relative_paths, arguments[1],
                                           arguments[2]);
  });
}

constexpr host::Signature kCleanupInPrefixesSignature{
    .name = "cleanup_contained_regular_files_in_prefixes",
    .parameters = {{{"root"}, {"prefixes", Pass::by_keyword}, kPreserve}},
};

Reference cleanup_contained_regular_files_in_prefixes(PyObject* /*module*/,
                                                      const Arguments& arguments) {
  return one_shot(pin(arguments[0]), [&](PyObject* pinned) {
    return host::call_method_with_keywords(pinned, names().remove_regular_files_in_prefixes,
                                           keywords().preserve_relative_paths, arguments[1],
                                           arguments[2]);
  });
}

constexpr host::Signature kEnsureSignature{
    .name = "ensure_contained_directory",
    .parameters = {{{"root"}, {"relative_path"}}},
};

Reference ensure_contained_directory(PyObject* /*module*/, const Arguments& arguments) {
  PyObject* const relative_path = arguments[1];
  return host::with(pin_or_create(arguments[0]).get(), [&](PyObject* pinned) {
    static_cast<void>(host::call_method(pinned, names().ensure_directory, relative_path));
    prove(pinned);
    return joined_location(pinned, relative_path);
  });
}

constexpr host::Signature kRemoveTreeSignature{
    .name = "remove_contained_directory_tree",
    .parameters = {{{"root"}, {"relative_path"}, kMissingOk}},
};

Reference remove_contained_directory_tree(PyObject* /*module*/, const Arguments& arguments) {
  return one_shot(pin(arguments[0]), [&](PyObject* pinned) {
    return host::call_method_with_keywords(pinned, names().remove_directory_tree,
                                           keywords().missing_ok, arguments[1],
                                           arguments.get(2, Py_True));
  });
}

}  // namespace

constinit const Operation kWriteContainedRegularFile =
    Operation::of<kWriteSignature, &write_contained_regular_file>();
constinit const Operation kRemoveContainedRegularFile =
    Operation::of<kRemoveSignature, &remove_contained_regular_file>();
constinit const Operation kCleanupContainedRegularFiles =
    Operation::of<kCleanupSignature, &cleanup_contained_regular_files>();
constinit const Operation kCleanupContainedRegularFilesInPrefixes =
    Operation::of<kCleanupInPrefixesSignature, &cleanup_contained_regular_files_in_prefixes>();
constinit const Operation kEnsureContainedDirectory =
    Operation::of<kEnsureSignature, &ensure_contained_directory>();
constinit const Operation kRemoveContainedDirectoryTree =
    Operation::of<kRemoveTreeSignature, &remove_contained_directory_tree>();

}  // namespace client_manifest::path_level
