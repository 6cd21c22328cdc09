// Puts the host's operators at the disposal of C++ code, each failure of theirs an Error.
#include "host/value.h"

#include <cstring>

#include "host/call.h"
#include "host/message.h"

namespace client_manifest::host {
namespace {

bool compare(PyObject* left, PyObject* right, int operation) {
  const Reference answer = take(PyObject_RichCompare(left, right, operation));
  return is_true(answer.get());
}

bool are_exact_texts(PyObject* left, PyObject* right) {
  return PyUnicode_CheckExact(left) != 0 && PyUnicode_CheckExact(right) != 0 &&
         PyUnicode_IS_READY(left) && PyUnicode_IS_READY(right);
}

// What the host's comparison of two exact texts comes down to.
bool same_text(PyObject* left, PyObject* right) {
  if (left == right) return true;
  const Py_ssize_t length = PyUnicode_GET_LENGTH(left);
  if (length != PyUnicode_GET_LENGTH(right)) return false;
  if (PyUnicode_KIND(left) != PyUnicode_KIND(right)) return false;
  const auto size = static_cast<std::size_t>(length) * PyUnicode_KIND(left);
  return std::memcmp(PyUnicode_DATA(left), PyUnicode_DATA(right), size) == 0;
}

}  // namespace

bool is_true(PyObject* value) { return check(PyObject_IsTrue(value)) != 0; }

bool equal(PyObject* left, PyObject* right) {
  return are_exact_texts(left, right) ? same_text(left, right) : compare(left, right, Py_EQ);
}

bool differ(PyObject* left, PyObject* right) {
  return are_exact_texts(left, right) ? !same_text(left, right) : compare(left, right, Py_NE);
}

bool is_above_zero(PyObject* value) {
  if (PyLong_CheckExact(value) != 0) return _PyLong_Sign(value) > 0;
  return compare(value, integer(std::int64_t{0}).get(), Py_GT);
}

bool is_below_zero(PyObject* value) {
  if (PyLong_CheckExact(value) != 0) return _PyLong_Sign(value) < 0;
  return compare(value, integer(std::int64_t{0}).get(), Py_LT);
}

bool contains(PyObject* holder, PyObject* value) {
  return check(PySequence_Contains(holder, value)) != 0;
}

bool is_integer(PyObject* value) noexcept {
  return PyLong_Check(value) != 0 && PyBool_Check(value) == 0;
}

Reference get(PyObject* mapping, PyObject* key, PyObject* fallback) {
  if (PyDict_CheckExact(mapping) != 0) {
    PyObject* const found = PyDict_GetItemWithError(mapping, key);
    if (found != nullptr) return Reference::acquire(found);
    if (PyErr_Occurred() != nullptr) throw Error::fetch();
    return Reference::acquire(fallback);
  }
  const Reference method = take(PyObject_GetAttrString(mapping, "get"));
  return fallback == Py_None ? call(method, key) : call(method, key, fallback);
}

Reference item(PyObject* container, PyObject* key) {
  return take(PyObject_GetItem(container, key));
}

int as_int(PyObject* value) {
  const int number = _PyLong_AsInt(value);
  if (number == -1 && PyErr_Occurred() != nullptr) throw Error::fetch();
  return number;
}

Reference integer(std::int64_t value) { return take(PyLong_FromLongLong(value)); }
Reference integer(std::uint64_t value) { return take(PyLong_FromUnsignedLongLong(value)); }

Reference joined(const char* separator, PyObject* values) {
  const Reference between = take(PyUnicode_FromString(separator));
  return take(PyUnicode_Join(between.get(), values));
}

Reference sorted(PyObject* values) {
  Reference list = take(PySequence_List(values));
  check(PyList_Sort(list.get()));
  return list;
}

Iteration::Iteration(PyObject* iterable) : iterator_(take(PyObject_GetIter(iterable))) {}

Reference Iteration::next() {
  PyObject* const found = PyIter_Next(iterator_.get());
  if (found == nullptr && PyErr_Occurred() != nullptr) throw Error::fetch();
  return Reference::steal(found);
}

Pair unpack_pair(PyObject* value) {
  if (PyTuple_CheckExact(value) != 0 && PyTuple_GET_SIZE(value) == 2) {
    return {Reference::acquire(PyTuple_GET_ITEM(value, 0)),
            Reference::acquire(PyTuple_GET_ITEM(value, 1))};
  }
  if (Py_TYPE(value)->tp_iter == nullptr && PySequence_Check(value) == 0) {
    const Reference kind = take(PyType_GetName(Py_TYPE(value)));
    raise(PyExc_TypeError, "cannot unpack non-iterable ", kind, " object");
  }
  Iteration iteration(value);
  Pair pair;
  for (Reference* const part : {&pair.first, &pair.second}) {
    *part = iteration.next();
    if (!*part) {
      raise(PyExc_ValueError, "not enough values to unpack (expected 2, got ",
            part == &pair.first ? "0)" : "1)");
    }
  }
  if (iteration.next()) raise(PyExc_ValueError, "too many values to unpack (expected 2)");
  return pair;
}

}  // namespace client_manifest::host
