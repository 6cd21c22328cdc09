// Starts the interpreter, runs the tests in it and ends it.
#include "host/interpreter.h"

#include <string>

#include "host/call.h"
#include "host/context_manager.h"

namespace client_manifest::native_tests {

using host::Reference;
using host::take;

Scope::Scope() : module_(take(PyModule_New("native"))), names_(take(PyDict_New())) {
  host::check(PyDict_SetItemString(names_.get(), "__builtins__", PyEval_GetBuiltins()));
}

void Scope::set(const char* name, const Reference& value) {
  host::check(PyDict_SetItemString(names_.get(), name, value.get()));
}

Reference Scope::evaluate(const char* text, int start) {
  return take(PyRun_String(text, start, names_.get(), names_.get()));
}

testing::AssertionResult Scope::runs(const char* statements) {
  try {
    const Reference none = evaluate(statements, Py_file_input);
    return testing::AssertionSuccess();
  } catch (const host::Error& error) {
    const Reference traceback = take(PyImport_ImportModule("traceback"));
    const Reference format = take(PyObject_GetAttrString(traceback.get(), "format_exception"));
    const Reference lines = host::call(format, error.exception());
    const Reference nothing = take(PyUnicode_New(0, 0));
    return testing::AssertionFailure()
           << text_of(take(PyUnicode_Join(nothing.get(), lines.get())).get());
  }
}

Reference Scope::value(const char* expression) { return evaluate(expression, Py_eval_input); }

std::string text_of(PyObject* value) {
  const Reference text = take(PyObject_Str(value));
  const char* const bytes = PyUnicode_AsUTF8(text.get());
  if (bytes == nullptr) throw host::Error::fetch();
  return bytes;
}

std::string shown(PyObject* value) {
  const Reference text = take(PyObject_ASCII(value));
  return text_of(text.get());
}

namespace {

// Isolated from the environment, but with the library of the interpreter that was built for.
bool start_interpreter() {
  PyConfig config;
  PyConfig_InitIsolatedConfig(&config);
  PyStatus status = PyConfig_SetBytesString(&config, &config.program_name, PYTHON_EXECUTABLE);
  if (PyStatus_Exception(status) == 0) status = Py_InitializeFromConfig(&config);
  PyConfig_Clear(&config);
  return PyStatus_Exception(status) == 0;
}

}  // namespace
}  // namespace client_manifest::native_tests

int main(int count, char** arguments) {
  testing::InitGoogleTest(&count, arguments);
  if (!client_manifest::native_tests::start_interpreter()) return 2;
  // As the load of the module makes them.
  client_manifest::host::make_context_manager_names();
  const int failed = RUN_ALL_TESTS();
  return Py_FinalizeEx() == 0 ? failed : 2;
}
