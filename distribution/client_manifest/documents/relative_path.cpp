// Judges contained paths by their characters alone, whatever methods a subclass of text overrides:
// what is judged here is what the file system will be given.
#include "documents/relative_path.h"

#include <algorithm>
#include <cstring>
#include <span>

#include "host/message.h"

namespace client_manifest::documents {
namespace {

using host::Arguments;
using host::Operation;
using host::raise;
using host::Reference;

// The characters of a text, in the width in which the host stores them.
template <class Character>
using Characters = std::span<const Character>;

template <class Character>
bool is_trimmed(Characters<Character> text) {
  return Py_UNICODE_ISSPACE(text.front()) == 0 && Py_UNICODE_ISSPACE(text.back()) == 0;
}

template <class Character>
bool begins_with_drive(Characters<Character> text) {
  return text.size() >= 2 && text[1] == ':' && Py_UNICODE_ISALPHA(text.front()) != 0;
}

// Where `wanted` first stands in the text, or its size.
template <class Character>
std::size_t find(Characters<Character> text, char wanted) {
  if constexpr (sizeof(Character) == 1) {
    const void* const found = std::memchr(text.data(), wanted, text.size());
    if (found == nullptr) return text.size();
    return static_cast<std::size_t>(static_cast<const Character*>(found) - text.data());
  } else {
    const auto found = std::find(text.begin(), text.end(), static_cast<Character>(wanted));
    return static_cast<std::size_t>(found - text.begin());
  }
}

template <class Character>
bool holds(Characters<Character> text, char unwanted) {
  return find(text, unwanted) < text.size();
}

// The order of these tests cannot be told from outside: they share one message.
template <class Character>
bool is_exact(Characters<Character> text) {
  return !text.empty() && is_trimmed(text) && text.front() != '/' && text.back() != '/' &&
         !begins_with_drive(text) && !holds(text, '\\') && !holds(text, '\0');
}

template <class Character>
bool is_named(Characters<Character> segment) {
  if (segment.empty()) return false;
  if (segment[0] != '.') return true;
  return segment.size() > 2 || (segment.size() == 2 && segment[1] != '.');
}

template <class Character>
bool has_only_named_segments(Characters<Character> text) {
  for (;;) {
    const std::size_t length = find(text, '/');
    if (!is_named(text.first(length))) return false;
    if (length == text.size()) return true;
    text = text.subspan(length + 1);
  }
}

template <class Character>
void judge(const Character* data, Py_ssize_t length) {
  const Characters<Character> text(data, static_cast<std::size_t>(length));
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
      judge(PyUnicode_1BYTE_DATA(relative_path), length);
      break;
    case PyUnicode_2BYTE_KIND:
      judge(PyUnicode_2BYTE_DATA(relative_path), length);
      break;
    default:
      judge(PyUnicode_4BYTE_DATA(relative_path), length);
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
  return call_bound(names().validate_manifest_relative_path, kValidateManifestRelativePath,
                    &documents::validate_manifest_relative_path, nullptr, relative_path);
}

}  // namespace bound

}  // namespace client_manifest::documents
