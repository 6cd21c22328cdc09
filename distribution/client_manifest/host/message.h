// Builds the text of a failure from fixed words and host values, as the host's f-strings do.
//
// A value goes in by the host's own formatting and is never read as a template: braces, percent
// signs and lone surrogates in a label come out as they went in.
#pragma once

#include <array>
#include <span>

#include "host/handling.h"

namespace client_manifest::host {

// One piece of a message: fixed words (ASCII), or a host value to be formatted.
class Piece {
 public:
  Piece(const char* words) noexcept : words_(words) {}             // NOLINT: implicit
  Piece(PyObject* value) noexcept : value_(value) {}               // NOLINT: implicit
  Piece(const Reference& value) noexcept : value_(value.get()) {}  // NOLINT: implicit
  [[nodiscard]] Reference text() const;

 private:
  const char* words_ = nullptr;
  PyObject* value_ = nullptr;
};

// The texts one after another as one.
[[nodiscard]] Reference concatenated(std::span<const Reference> texts);

// The pieces one after another as one host text.
template <class... Pieces>
[[nodiscard]] Reference text(const Pieces&... pieces) {
  const std::array<Reference, sizeof...(Pieces)> texts{Piece(pieces).text()...};
  return concatenated(texts);
}

// Raises `kind` with the text that the pieces make.
template <class... Pieces>
[[noreturn]] void raise(PyObject* kind, const Pieces&... pieces) {
  throw Error(kind, text(pieces...));
}

// Raises `kind` with the text that the pieces make, chained from `cause`, as a handler's
// `raise kind(text) from cause` does.
template <class... Pieces>
[[noreturn]] void raise_from(const Error& cause, PyObject* kind, const Pieces&... pieces) {
  const Handling handling(cause);
  throw Error(kind, text(pieces...)).from(cause);
}

}  // namespace client_manifest::host
