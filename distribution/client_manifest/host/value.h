// Asks host values what the host's operators would ask them: truth, equality, items, integers.
//
// All of these can run foreign code when the value is not of an exact built-in type.
#pragma once

#include <cstdint>

#include "host/error.h"

namespace client_manifest::host {

[[nodiscard]] bool is_true(PyObject* value);                 // bool(value)
[[nodiscard]] bool equal(PyObject* left, PyObject* right);   // left == right
[[nodiscard]] bool differ(PyObject* left, PyObject* right);  // left != right
[[nodiscard]] bool is_above_zero(PyObject* value);           // value > 0
[[nodiscard]] bool is_below_zero(PyObject* value);           // value < 0
[[nodiscard]] bool contains(PyObject* holder, PyObject* value);

[[nodiscard]] inline Reference truth(bool value) noexcept {
  return Reference::acquire(value ? Py_True : Py_False);
}

// `isinstance(value, int)` that keeps out the booleans, which the host counts as integers.
[[nodiscard]] bool is_integer(PyObject* value) noexcept;

// `mapping.get(key)` and `mapping.get(key, fallback)`.
[[nodiscard]] Reference get(PyObject* mapping, PyObject* key, PyObject* fallback = Py_None);
// `container[key]`.
[[nodiscard]] Reference item(PyObject* container, PyObject* key);

// The C int behind a host integer, with the host's own TypeError and OverflowError.
[[nodiscard]] int as_int(PyObject* value);
[[nodiscard]] Reference integer(std::int64_t value);
[[nodiscard]] Reference integer(std::uint64_t value);

// `", ".join(values)` for any separator.
[[nodiscard]] Reference joined(const char* separator, PyObject* values);
// `sorted(values)`.
[[nodiscard]] Reference sorted(PyObject* values);

// `for item in iterable`, one item a call; an empty reference at the end.
class Iteration {
 public:
  explicit Iteration(PyObject* iterable);
  [[nodiscard]] Reference next();

 private:
  Reference iterator_;
};

// `for item in iterable: use(item)`; the item is owned for as long as `use` runs.
template <class Use>
void for_each(PyObject* iterable, Use&& use) {
  if (PyList_CheckExact(iterable) != 0) {
    // The list may shrink or grow meanwhile, as it may under the host's own loop.
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(iterable); ++i) {
      const Reference item = Reference::acquire(PyList_GET_ITEM(iterable, i));
      use(item.get());
    }
    return;
  }
  Iteration iteration(iterable);
  while (const Reference item = iteration.next()) use(item.get());
}

struct Pair {
  Reference first;
  Reference second;
};

// `first, second = value`, with the host's own failures for a value of another shape.
[[nodiscard]] Pair unpack_pair(PyObject* value);

}  // namespace client_manifest::host
