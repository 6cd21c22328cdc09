// Formats each piece of a message by the host and joins them in order.
#include "host/message.h"

#include <vector>

namespace client_manifest::host {

Reference Piece::text() const {
  return words_ != nullptr ? take(PyUnicode_FromString(words_))
                           : take(PyObject_Format(value_, nullptr));
}

Reference join(const Piece* pieces, std::size_t count) {
  // Formatting can run foreign code, which must not come upon a tuple with gaps in it.
  std::vector<Reference> texts;
  texts.reserve(count);
  for (std::size_t i = 0; i < count; ++i) texts.push_back(pieces[i].text());

  const Reference tuple = take(PyTuple_New(static_cast<Py_ssize_t>(count)));
  for (std::size_t i = 0; i < count; ++i) {
    PyTuple_SET_ITEM(tuple.get(), static_cast<Py_ssize_t>(i), texts[i].release());
  }
  const Reference nothing = take(PyUnicode_New(0, 0));
  return take(PyUnicode_Join(nothing.get(), tuple.get()));
}

}  // namespace client_manifest::host
