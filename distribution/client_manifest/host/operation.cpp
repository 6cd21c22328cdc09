// Makes host callables out of declared operations, their signatures readable by the host.
#include "host/operation.h"

#include <memory>
#include <string>

namespace client_manifest::host {
namespace {

// The text from which the host reads signature and documentation.
std::string host_documentation(const Signature& signature) {
  std::string text = signature.name;
  text += '(';
  const char* separator = "";
  if (signature.kind == Kind::function) {
    text += "$module";
    separator = ", ";
  } else if (signature.kind == Kind::method || signature.kind == Kind::property) {
    text += "$self";
    separator = ", ";
  }
  for (std::size_t i = 0; i < signature.count(); ++i) {
    const Parameter& parameter = signature.parameters[i];
    text += separator;
    separator = ", ";
    if (i == signature.positional()) text += "*, ";
    text += parameter.name;
    if (parameter.default_text != nullptr) {
      text += '=';
      text += parameter.default_text;
    }
  }
  text += ")\n--\n\n";
  if (signature.documentation != nullptr) text += signature.documentation;
  return text;
}

}  // namespace

PyMethodDef* Operation::definition() const {
  // The host keeps pointers to both for as long as any callable made from them lives, which can be
  // longer than the module: they are never freed.
  const std::string text = host_documentation(*signature_);
  auto kept_text = std::make_unique<char[]>(text.size() + 1);
  text.copy(kept_text.get(), text.size());
  auto definition = std::make_unique<PyMethodDef>();
  definition->ml_name = signature_->name;
  definition->ml_meth = function_pointer();
  definition->ml_flags = METH_FASTCALL | METH_KEYWORDS;
  // A static method is bound to nothing; without the flag it would show its class as `__self__`.
  if (signature_->kind == Kind::static_method) definition->ml_flags |= METH_STATIC;
  definition->ml_doc = kept_text.release();
  return definition.release();
}

Reference Operation::function(PyObject* module) const {
  const Reference name = take(PyModule_GetNameObject(module));
  return take(PyCFunction_NewEx(definition(), module, name.get()));
}

Reference Operation::member(PyObject* owner, PyObject* module_name) const {
  if (signature_->kind == Kind::method || signature_->kind == Kind::property) {
    Reference method =
        take(PyDescr_NewMethod(reinterpret_cast<PyTypeObject*>(owner), definition()));
    if (signature_->kind == Kind::method) return method;
    return take(PyObject_CallOneArg(reinterpret_cast<PyObject*>(&PyProperty_Type), method.get()));
  }
  const Reference plain = take(PyCFunction_NewEx(definition(), owner, module_name));
  return take(signature_->kind == Kind::class_method ? PyClassMethod_New(plain.get())
                                                     : PyStaticMethod_New(plain.get()));
}

bool Operation::is(PyObject* callable) const noexcept {
  // A class method is bound by an object of its own, around the function.
  PyObject* const function = PyMethod_Check(callable) != 0 ? PyMethod_Function(callable) : callable;
  return PyCFunction_CheckExact(function) != 0 &&
         PyCFunction_GET_FUNCTION(function) == function_pointer();
}

bool Operation::is(PyObject* callable, PyObject* self) const noexcept {
  return is(callable) && PyCFunction_CheckExact(callable) != 0 &&
         PyCFunction_GET_SELF(callable) == self;
}

bool Operation::is_method_for(PyObject* callable, PyObject* self) const noexcept {
  if (Py_IS_TYPE(callable, &PyMethodDescr_Type) == 0) return false;
  const auto* const descriptor = reinterpret_cast<const PyMethodDescrObject*>(callable);
  return descriptor->d_method->ml_meth == function_pointer() &&
         PyObject_TypeCheck(self, PyDescr_TYPE(descriptor)) != 0;
}

}  // namespace client_manifest::host
