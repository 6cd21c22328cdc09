// Host texts as bytes that can be compared without the interpreter lock.
//
// The form is UTF-8 in which a lone surrogate, such as one that stands for a byte of a name that is
// no text, has three bytes of its own. Two forms are equal, or one begins or ends with the other,
// exactly when that is true of the texts; their order is the order of the texts.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/error.h"

namespace client_manifest::host {

// The form of a host text; the host's TypeError for any other value. Needs the lock.
[[nodiscard]] std::string text_form(PyObject* text);

// The text again. Needs the lock.
[[nodiscard]] Reference from_text_form(std::string_view form);

// Appends the form of a name that the system gave, as the host decodes names. It takes the lock
// only for a name that is not ASCII.
void append_text_form_of_name(std::string& form, std::string_view name);

// `tuple(sorted(texts))` of texts in their form. Needs the lock.
[[nodiscard]] Reference sorted_texts(std::vector<std::string> forms);

}  // namespace client_manifest::host
