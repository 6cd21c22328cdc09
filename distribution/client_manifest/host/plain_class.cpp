// Calls the host's `type` and `dataclass`, and hangs the operations into what they make.
#include "host/plain_class.h"

#include "host/call.h"

namespace client_manifest::host {
namespace {

void put(const Reference& dictionary, const char* name, const Reference& value) {
  check(PyDict_SetItemString(dictionary.get(), name, value.get()));
}

Reference class_namespace(const ClassFrame& frame) {
  Reference names = take(PyDict_New());
  put(names, "__module__", Reference::acquire(frame.module_name));
  if (frame.documentation != nullptr) {
    put(names, "__doc__", take(PyUnicode_FromString(frame.documentation)));
  }
  return names;
}

Reference make_class(const ClassFrame& frame, PyObject* base, const Reference& names) {
  const Reference bases = base == nullptr ? take(PyTuple_New(0)) : take(PyTuple_Pack(1, base));
  const Reference name = take(PyUnicode_FromString(frame.name));
  const Reference type = Reference::acquire(reinterpret_cast<PyObject*>(&PyType_Type));
  return call(type, name, bases, names);
}

void add_members(const Reference& made, const ClassFrame& frame,
                 std::initializer_list<const Operation*> members) {
  for (const Operation* const member : members) {
    const Reference value = member->member(made.get(), frame.module_name);
    check(PyObject_SetAttrString(made.get(), member->signature().name, value.get()));
  }
}

}  // namespace

Reference plain_class(const ClassFrame& frame, PyObject* base,
                      std::initializer_list<const Operation*> members,
                      std::initializer_list<Constant> constants) {
  const Reference names = class_namespace(frame);
  for (const Constant& constant : constants) {
    put(names, constant.name, take(PyLong_FromUnsignedLong(constant.value)));
  }
  Reference made = make_class(frame, base, names);
  add_members(made, frame, members);
  return made;
}

Reference frozen_record(const ClassFrame& frame, PyObject* dataclass,
                        std::initializer_list<Field> fields,
                        std::initializer_list<const Operation*> members) {
  const Reference annotations = take(PyDict_New());
  for (const Field& field : fields) {
    put(annotations, field.name, take(PyUnicode_FromString(field.annotation)));
  }
  const Reference names = class_namespace(frame);
  put(names, "__annotations__", annotations);
  const Reference made = make_class(frame, nullptr, names);
  add_members(made, frame, members);
  const Reference keywords = take(PyTuple_Pack(1, take(PyUnicode_FromString("frozen")).get()));
  const Reference decorate =
      call_with_keywords(Reference::acquire(dataclass), keywords.get(), Py_True);
  return call(decorate, made);
}

}  // namespace client_manifest::host
