// Makes classes as the host's own class statement does: plain, open to subclasses and to change,
// their instances with a `__dict__`, their members in the order in which they are given.
#pragma once

#include <initializer_list>

#include "host/operation.h"

namespace client_manifest::host {

struct Field {
  const char* name;
  const char* annotation;
};

struct ClassFrame {
  const char* name;
  const char* documentation;  // null: none
  PyObject* module_name;
};

// `class name(base)`, without a base when it is null.
[[nodiscard]] Reference plain_class(const ClassFrame& frame, PyObject* base,
                                    std::initializer_list<const Operation*> members);

// A class made by `decorate`, the host's `dataclass(frozen=True)`, with the fields in the order
// given and the operations in `properties` as read-only properties.
[[nodiscard]] Reference frozen_record(const ClassFrame& frame, PyObject* dataclass,
                                      std::initializer_list<Field> fields,
                                      std::initializer_list<const Operation*> properties);

}  // namespace client_manifest::host
