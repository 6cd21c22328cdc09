// A host exception on its way through C++: it can be matched, translated, chained and handed back.
//
// While an Error travels, the host has no exception pending, so that clean-up on the way may call
// the host freely. `take` and `check` turn the host's two ways of reporting a failure into one.
#pragma once

#include <exception>

#include "host/reference.h"

namespace client_manifest::host {

class Error : public std::exception {
 public:
  // Raises `kind(argument)` as the host's own `raise` does, the exception that is being handled as
  // its context, and takes it up. Throws what the class raises instead.
  Error(PyObject* kind, const Reference& argument);
  Error(Error&&) noexcept = default;
  Error(const Error&) = delete;
  Error& operator=(Error&&) noexcept = default;
  Error& operator=(const Error&) = delete;
  ~Error() override = default;

  // Raises `exception`, which is an object already, in the same way.
  [[nodiscard]] static Error raised(const Reference& exception);

  // Takes up the exception that is pending in the host; a missing one is the host's SystemError.
  [[nodiscard]] static Error fetch();

  // `except kind`: a class or a flat tuple of classes; the host's TypeError for anything else.
  [[nodiscard]] bool matches(PyObject* kind) const;
  [[nodiscard]] PyObject* exception() const noexcept { return exception_.get(); }

  // Makes `cause` what this exception was raised from. It has become the context if it was being
  // handled (see host/handling.h), as it is in the host's own handlers.
  [[nodiscard]] Error from(const Error& cause) && noexcept;

  // Makes it the host's pending exception again.
  void restore() && noexcept;

  [[nodiscard]] const char* what() const noexcept override { return "a host exception"; }

 private:
  explicit Error(Reference exception) noexcept : exception_(std::move(exception)) {}

  Reference exception_;
};

// Owns what a host call returned, or throws what it raised.
[[nodiscard]] inline Reference take(PyObject* result) {
  if (result == nullptr) throw Error::fetch();
  return Reference::steal(result);
}

// Gives back the answer of a host call that reports a failure as a negative number, or throws.
inline int check(int result) {
  if (result < 0) throw Error::fetch();
  return result;
}

}  // namespace client_manifest::host
