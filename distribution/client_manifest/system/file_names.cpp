// Encodes path segments as the host does for its own file calls.
#include "system/file_names.h"

#include <optional>
#include <string_view>

#include "host/call.h"

namespace client_manifest::system {
namespace {

using host::Reference;
using host::take;

// Most paths take one allocation each for their bytes and their segments.
constexpr std::size_t kUsualLength = 128;
constexpr std::size_t kUsualDepth = 16;

// A view of the text where it needs no encoding: in ASCII, and without a NUL, it is its own bytes.
std::optional<std::string_view> plain_bytes(PyObject* text) {
  if (PyUnicode_Check(text) == 0 || PyUnicode_READY(text) < 0) return std::nullopt;
  if (PyUnicode_IS_ASCII(text) == 0) return std::nullopt;
  const std::string_view bytes(static_cast<const char*>(PyUnicode_DATA(text)),
                               static_cast<std::size_t>(PyUnicode_GET_LENGTH(text)));
  if (bytes.find('\0') != std::string_view::npos) return std::nullopt;
  return bytes;
}

}  // namespace

FileNames FileNames::split(PyObject* path) {
  FileNames names;
  if (const auto bytes = plain_bytes(path)) {
    names.bytes_.reserve(bytes->size() + 1);
    names.starts_.reserve(kUsualDepth);
    names.bytes_.assign(*bytes).push_back('\0');
    names.starts_.push_back(0);
    for (std::size_t slash = names.bytes_.find('/'); slash != std::string::npos;
         slash = names.bytes_.find('/', slash + 1)) {
      names.bytes_[slash] = '\0';
      names.starts_.push_back(slash + 1);
    }
    names.size_ = names.starts_.size();
    return names;
  }
  const Reference separator = take(PyUnicode_FromString("/"));
  const Reference segments = take(PyUnicode_Split(path, separator.get(), -1));
  for (Py_ssize_t i = 0; i < PyList_GET_SIZE(segments.get()); ++i) {
    names.append(PyList_GET_ITEM(segments.get(), i));
  }
  return names;
}

FileNames FileNames::of(PyObject* components, Py_ssize_t first) {
  FileNames names;
  names.bytes_.reserve(kUsualLength);
  names.starts_.reserve(kUsualDepth);
  for (Py_ssize_t i = first; i < PyTuple_GET_SIZE(components); ++i) {
    names.append(PyTuple_GET_ITEM(components, i));
  }
  return names;
}

FileNames FileNames::one(PyObject* name) {
  FileNames names;
  names.append(name);
  return names;
}

const char* FileNames::at(std::size_t index) const {
  if (index < starts_.size()) return bytes_.data() + starts_[index];
  throw host::Error(std::move(*refused_));
}

void FileNames::append(PyObject* name) {
  ++size_;
  if (refused_) return;
  const std::size_t start = bytes_.size();
  if (const auto bytes = plain_bytes(name)) {
    bytes_.append(*bytes);
  } else {
    PyObject* encoded = nullptr;
    if (PyUnicode_FSConverter(name, &encoded) == 0) {
      refused_ = std::make_unique<host::Error>(host::Error::fetch());
      return;
    }
    const Reference owned = Reference::steal(encoded);
    bytes_.append(PyBytes_AS_STRING(encoded), static_cast<std::size_t>(PyBytes_GET_SIZE(encoded)));
  }
  bytes_.push_back('\0');
  starts_.push_back(start);
}

}  // namespace client_manifest::system
