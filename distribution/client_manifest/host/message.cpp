// Formats each piece of a message by the host and joins them in order.
#include "host/message.h"

#include <algorithm>

namespace client_manifest::host {

Reference Piece::text() const {
  return words_ != nullptr ? take(PyUnicode_FromString(words_))
                           : take(PyObject_Format(value_, nullptr));
}

Reference concatenated(std::span<const Reference> texts) {
  Py_ssize_t length = 0;
  Py_UCS4 widest = 0;
  for (const Reference& text : texts) {
    check(PyUnicode_READY(text.get()));
    length += PyUnicode_GET_LENGTH(text.get());
    widest = std::max(widest, PyUnicode_MAX_CHAR_VALUE(text.get()));
  }
  Reference whole = take(PyUnicode_New(length, widest));
  Py_ssize_t end = 0;
  for (const Reference& text : texts) {
    const Py_ssize_t size = PyUnicode_GET_LENGTH(text.get());
    if (PyUnicode_CopyCharacters(whole.get(), end, text.get(), 0, size) < 0) throw Error::fetch();
    end += size;
  }
  return whole;
}

}  // namespace client_manifest::host
