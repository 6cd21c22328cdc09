// Leaves what is text and what is not to the host's codecs; a name in ASCII is its own form.
#include "host/text_form.h"

#include <algorithm>

#include "host/interpreter_lock.h"

namespace client_manifest::host {
namespace {

bool is_ascii(std::string_view bytes) {
  return std::ranges::all_of(bytes,
                             [](char byte) { return static_cast<unsigned char>(byte) < 128; });
}

}  // namespace

std::string text_form(PyObject* text) {
  const Reference form = take(PyUnicode_AsEncodedString(text, "utf-8", "surrogatepass"));
  return {PyBytes_AS_STRING(form.get()), static_cast<std::size_t>(PyBytes_GET_SIZE(form.get()))};
}

Reference from_text_form(std::string_view form) {
  return take(
      PyUnicode_DecodeUTF8(form.data(), static_cast<Py_ssize_t>(form.size()), "surrogatepass"));
}

void append_text_form_of_name(std::string& form, std::string_view name) {
  if (is_ascii(name)) {
    form += name;
    return;
  }
  const LockTaken lock;
  const Reference text =
      take(PyUnicode_DecodeFSDefaultAndSize(name.data(), static_cast<Py_ssize_t>(name.size())));
  form += text_form(text.get());
}

Reference sorted_texts(std::vector<std::string> forms) {
  std::ranges::sort(forms);
  Reference texts = take(PyTuple_New(static_cast<Py_ssize_t>(forms.size())));
  Py_ssize_t place = 0;
  for (const std::string& form : forms) {
    PyTuple_SET_ITEM(texts.get(), place++, from_text_form(form).release());
  }
  return texts;
}

}  // namespace client_manifest::host
