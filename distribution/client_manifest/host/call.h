// Calls host objects: positional arguments, keywords by name tuple, methods by interned name.
#pragma once

#include <array>
#include <concepts>
#include <initializer_list>
#include <span>

#include "host/error.h"

namespace client_manifest::host {

template <class Argument>
concept HostArgument = std::convertible_to<Argument, PyObject*> ||
                       std::same_as<std::remove_cvref_t<Argument>, Reference>;

[[nodiscard]] inline PyObject* lend(PyObject* object) noexcept { return object; }
[[nodiscard]] inline PyObject* lend(const Reference& object) noexcept { return object.get(); }

// `callable(*arguments)`, the last ones as keywords when `keywords` names them.
template <HostArgument... Arguments>
[[nodiscard]] Reference call_with_keywords(const Reference& callable, PyObject* keywords,
                                           const Arguments&... arguments) {
  // The slot in front lets the host put a `self` there without copying the rest.
  std::array<PyObject*, sizeof...(Arguments) + 1> slots{nullptr, lend(arguments)...};
  const std::size_t named =
      keywords == nullptr ? 0 : static_cast<std::size_t>(PyTuple_GET_SIZE(keywords));
  return take(PyObject_Vectorcall(callable.get(), slots.data() + 1,
                                  (sizeof...(Arguments) - named) | PY_VECTORCALL_ARGUMENTS_OFFSET,
                                  keywords));
}

// `callable(*arguments)`.
template <HostArgument... Arguments>
[[nodiscard]] Reference call(const Reference& callable, const Arguments&... arguments) {
  return call_with_keywords(callable, nullptr, arguments...);
}

// `object.name`.
[[nodiscard]] inline Reference attribute(PyObject* object, PyObject* name) {
  return take(PyObject_GetAttr(object, name));
}

// `object.name(*arguments)`, the last ones as keywords when `keywords` names them.
template <HostArgument... Arguments>
[[nodiscard]] Reference call_method_with_keywords(PyObject* object, PyObject* name,
                                                  PyObject* keywords,
                                                  const Arguments&... arguments) {
  const std::array<PyObject*, sizeof...(Arguments) + 1> slots{object, lend(arguments)...};
  const std::size_t named =
      keywords == nullptr ? 0 : static_cast<std::size_t>(PyTuple_GET_SIZE(keywords));
  return take(PyObject_VectorcallMethod(name, slots.data(), slots.size() - named, keywords));
}

// `object.name(*arguments)`.
template <HostArgument... Arguments>
[[nodiscard]] Reference call_method(PyObject* object, PyObject* name,
                                    const Arguments&... arguments) {
  return call_method_with_keywords(object, name, nullptr, arguments...);
}

// `object.name`, for a name that is not interned beforehand.
[[nodiscard]] inline Reference attribute(PyObject* object, const char* name) {
  return take(PyObject_GetAttrString(object, name));
}

// An argument that is passed by keyword.
struct Keyword {
  const char* name;
  PyObject* value;
};

// `object.name(*positional, **named)`, where it is called too seldom to prepare its names.
[[nodiscard]] Reference invoke(PyObject* object, const char* name,
                               std::initializer_list<PyObject*> positional,
                               std::span<const Keyword> named = {});
[[nodiscard]] inline Reference invoke(PyObject* object, const char* name,
                                      std::initializer_list<PyObject*> positional,
                                      std::initializer_list<Keyword> named) {
  return invoke(object, name, positional, std::span(named.begin(), named.size()));
}

}  // namespace client_manifest::host
