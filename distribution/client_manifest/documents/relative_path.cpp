// Judges contained paths by their characters alone, whatever methods a subclass of text overrides:
// what is judged here is what the file system will be given.
#include "documents/relative_path.h"

#include "host/message.h"

namespace client_manifest::documents {
namespace {

using host::Arguments;
using host::Operation;
using host::raise;
using host::Reference;

// The characters of a text, by the width in which the host stores them.
template <class Character>
struct Characters {
  const Character* data;
  Py_ssize_t length;

  [[nodiscard]] Py_UCS4 first() const { return data[0]; }
  [[nodiscard]] Py_UCS4 last() const { return data[length - 1]; }
};

template <class Character>
bool holds_backslash_or_nul(const Characters<Character>& text) {
  for (Py_ssize_t i = 0; i < text.length; ++i) {
    if (text.data[i] == '\\' || text.data[i] == 0) return true;
  }
  return false;
}

template <class Character>
bool begins_with_drive(const Characters<Character>& text) {
  return text.length >= 2 && Py_UNICODE_ISALPHA(text.first()) != 0 && text.data[1] == ':';
}

// The order of these tests cannot be told from outside: they share one message.
template <class Character>
bool is_exact(const Characters<Character>& text) {
  return text.length > 0 && Py_UNICODE_ISSPACE(text.first()) == 0 &&
         Py_UNICODE_ISSPACE(text.last()) == 0 && text.first() != '/' && text.last() != '/' &&
         !begins_with_drive(text) && !holds_backslash_or_nul(text);
}

template <class Character>
bool is_empty_dot_or_parent(const Character* segment, Py_ssize_t length) {
  if (length == 0) return true;
  if (segment[0] != '.') return false;
  return length == 1 || (length == 2 && segment[1] == '.');
}

template <class Character>
bool has_only_named_segments(const Characters<Character>& text) {
  Py_ssize_t start = 0;
  for (Py_ssize_t end = 0; end <= text.length; ++end) {
    if (end < text.length && text.data[end] != '/') continue;
    if (is_empty_dot_or_parent(text.data + start, end - start)) return false;
    start = end + 1;
  }
  return true;
}

template <class Character>
void judge(const Characters<Character>& text) {
  if (!is_exact(text)) {
    raise(PyExc_ValueError, "manifest relative path must be an exact relative POSIX path");
  }
  if (!has_only_named_segments(text)) {
    raise(PyExc_ValueError,
          "manifest relative path must not contain empty, dot, or parent segments");
  }
}

}  // namespace

Reference validate_manifest_relative_path(PyObject* relative_path) {
  if (PyUnicode_Check(relative_path) == 0) {
    raise(PyExc_TypeError, "manifest relative path must be a string");
  }
  host::check(PyUnicode_READY(relative_path));
  const Py_ssize_t length = PyUnicode_GET_LENGTH(relative_path);
  switch (PyUnicode_KIND(relative_path)) {
    case PyUnicode_1BYTE_KIND:
      judge(Characters<Py_UCS1>{PyUnicode_1BYTE_DATA(relative_path), length});
      break;
    case PyUnicode_2BYTE_KIND:
      judge(Characters<Py_UCS2>{PyUnicode_2BYTE_DATA(relative_path), length});
      break;
    default:
      judge(Characters<Py_UCS4>{PyUnicode_4BYTE_DATA(relative_path), length});
      break;
  }
  return Reference::acquire(relative_path);
}

namespace {

constexpr host::Signature kSignature{
    .name = "validate_manifest_relative_path",
    .parameters = {{{"relative_path"}}},
    .documentation = "Return an exact relative POSIX path without repairing aliases.",
};

Reference body(PyObject* /*module*/, const Arguments& arguments) {
  return validate_manifest_relative_path(arguments[0]);
}

}  // namespace

constinit const Operation kValidateManifestRelativePath = Operation::of<kSignature, &body>();

namespace bound {

Reference validate_manifest_relative_path(PyObject* relative_path) {
  const Reference now = global(names().validate_manifest_relative_path);
  return kValidateManifestRelativePath.is(now.get())
             ? documents::validate_manifest_relative_path(relative_path)
             : host::call(now, relative_path);
}

}  // namespace bound

}  // namespace client_manifest::documents
