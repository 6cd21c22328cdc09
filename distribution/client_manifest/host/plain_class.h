// Makes classes as the host's own class statement does: plain, open to subclasses and to change,
// their instances with a `__dict__`, their members in the order in which they are given.
#pragma once

#include <cstdint>
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

struct Constant {
  const char* name;
  std::uint32_t value;
};

// `class name(base)`, without a base when it is null; constants stand before members.
[[nodiscard]] Reference plain_class(const ClassFrame& frame, PyObject* base,
                                    std::initializer_list<const Operation*> members,
                                    std::initializer_list<Constant> constants = {});

// A class made by `decorate`, the host's `dataclass(frozen=True)`, with the fields in the order
// given and then the members.
[[nodiscard]] Reference frozen_record(const ClassFrame& frame, PyObject* dataclass,
                                      std::initializer_list<Field> fields,
                                      std::initializer_list<const Operation*> members);

}  // namespace client_manifest::host
