// The embedded interpreter of the native tests, and the two ways in which they talk to it: native
// pieces are handed to it as callables, and statements in its own language judge them.
#pragma once

#include <gtest/gtest.h>

#include "host/operation.h"

namespace client_manifest::native_tests {

// The names that statements see, the host's own built-ins among them.
class Scope {
 public:
  Scope();

  // Binds the native `body`, called with the parameters of `signature`, under its own name.
  template <const host::Signature& signature, host::Body body>
  void bind() {
    set(signature.name, host::Operation::of<signature, body>().function(module_.get()));
  }
  void set(const char* name, const host::Reference& value);

  // Whether the statements end without an exception; if not, the host's traceback says why.
  [[nodiscard]] testing::AssertionResult runs(const char* statements);
  // The value of `expression`.
  [[nodiscard]] host::Reference value(const char* expression);

 private:
  host::Reference evaluate(const char* text, int start);

  host::Reference module_;
  host::Reference names_;
};

// `str(value)` and `repr(value)`, for comparisons with fixed words.
[[nodiscard]] std::string text_of(PyObject* value);
[[nodiscard]] std::string shown(PyObject* value);

// What `outcome(function, *arguments)` in a scope gives: a result, or all that can be seen of a
// failure, whatever it was raised from included.
inline constexpr const char* kOutcome = R"(
def seen(error):
    if error is None:
        return None
    chain = (seen(error.__cause__), seen(error.__context__), error.__suppress_context__)
    return (type(error), error.args, chain)

def outcome(function, *arguments, **keywords):
    try:
        return ("result", function(*arguments, **keywords))
    except BaseException as error:
        return ("failure", seen(error))
)";

}  // namespace client_manifest::native_tests
