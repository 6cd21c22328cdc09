// Declares an operation once: from it come the host callable, its readable signature, the reading
// of its arguments and the question whether a name is still bound to it.
//
// An operation's body receives borrowed arguments in the order of its parameters; the host keeps
// them alive for the length of the call. One left at its default is null.
#pragma once

#include <array>
#include <cstddef>

#include "host/boundary.h"

namespace client_manifest::host {

enum class Pass { anyhow, by_keyword };

struct Parameter {
  const char* name = nullptr;
  Pass pass = Pass::anyhow;
  const char* default_text = nullptr;  // as it reads in a signature; null: required
};

// A class method names the class as its first parameter, as it does in the host's language. A
// property is the method that reads it.
enum class Kind { function, method, class_method, static_method, property };

inline constexpr std::size_t kMostParameters = 6;

struct Signature {
  const char* name = nullptr;
  Kind kind = Kind::function;
  std::array<Parameter, kMostParameters> parameters{};  // a nameless one ends the list
  const char* documentation = nullptr;

  [[nodiscard]] constexpr std::size_t count() const {
    std::size_t number = 0;
    while (number < parameters.size() && parameters[number].name != nullptr) ++number;
    return number;
  }
  [[nodiscard]] constexpr std::size_t positional() const {
    std::size_t number = 0;
    while (number < count() && parameters[number].pass == Pass::anyhow) ++number;
    return number;
  }
};

class Arguments {
 public:
  // Sorts the arguments of one call into the order of the parameters, or throws the host's
  // TypeError in the words that it has for a function of its own.
  Arguments(const Signature& signature, PyObject* const* values, std::size_t positional,
            PyObject* keywords);

  [[nodiscard]] PyObject* operator[](std::size_t parameter) const { return values_[parameter]; }

  // The argument, or `otherwise` where it was left at its default.
  [[nodiscard]] PyObject* get(std::size_t parameter, PyObject* otherwise) const {
    return values_[parameter] != nullptr ? values_[parameter] : otherwise;
  }

 private:
  std::array<PyObject*, kMostParameters> values_{};
};

using Body = Reference (*)(PyObject* self, const Arguments& arguments);

// The C function that the host calls for the operation; the only place that catches.
template <const Signature& signature, Body body>
PyObject* entry(PyObject* self, PyObject* const* values, Py_ssize_t positional,
                PyObject* keywords) noexcept {
  return boundary([&] {
    return body(self, Arguments(signature, values, static_cast<std::size_t>(positional), keywords));
  });
}

class Operation {
 public:
  template <const Signature& signature, Body body>
  [[nodiscard]] static constexpr Operation of() noexcept {
    return Operation(signature, &entry<signature, body>);
  }

  [[nodiscard]] constexpr const Signature& signature() const { return *signature_; }

  // What the host binds: a function of `module`, or a member of the class `owner`.
  [[nodiscard]] Reference function(PyObject* module) const;
  [[nodiscard]] Reference member(PyObject* owner, PyObject* module_name) const;

  // Whether `callable` is this operation's function, bound by the host to any object.
  [[nodiscard]] bool is(PyObject* callable) const noexcept;
  // Whether `callable` is this operation's function, bound by the host to `self`.
  [[nodiscard]] bool is(PyObject* callable, PyObject* self) const noexcept;

  // Whether `callable` is this operation as a method of the type of `self`, not yet bound to it.
  [[nodiscard]] bool is_method_for(PyObject* callable, PyObject* self) const noexcept;

 private:
  using Entry = PyObject* (*)(PyObject*, PyObject* const*, Py_ssize_t, PyObject*);

  constexpr Operation(const Signature& described, Entry called) noexcept
      : signature_(&described), entry_(called) {}

  [[nodiscard]] PyCFunction function_pointer() const noexcept {
    // The host casts it back, by the flags of the definition, before it calls it.
    return reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(entry_));
  }
  [[nodiscard]] PyMethodDef* definition() const;

  const Signature* signature_;
  Entry entry_;
};

}  // namespace client_manifest::host
