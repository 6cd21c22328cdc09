// The entry point: one module object in one interpreter for as long as the process lives.
#include <array>
#include <cstdint>

#include "accepted/digest.h"
#include "accepted/file_identity.h"
#include "client_manifest.h"
#include "frame/bindings.h"
#include "host/boundary.h"
#include "host/chunk_buffer.h"
#include "host/context_manager.h"
#include "host/message.h"
#include "system/file_stat.h"

namespace client_manifest::frame {
namespace {

using host::Error;
using host::raise;
using host::Reference;
using host::take;

void require_one_interpreter() {
  static std::int64_t only = -1;
  const std::int64_t current = PyInterpreterState_GetID(PyInterpreterState_Get());
  if (current < 0) throw Error::fetch();
  if (only < 0) only = current;
  if (only != current) {
    raise(PyExc_ImportError,
          "Interpreter change detected - this module can only be loaded into one interpreter per "
          "process.");
  }
}

PyObject* create(PyObject* spec, PyModuleDef* /*definition*/) noexcept {
  return host::boundary([&] {
    require_one_interpreter();
    const Reference name = take(PyObject_GetAttrString(spec, "name"));
    return take(PyModule_NewObject(name.get()));
  });
}

// Puts the module into the host's table of loaded modules if nothing stands there under its name;
// gives whether it did.
bool register_module(PyObject* module) {
  PyObject* const loaded = PyImport_GetModuleDict();
  const Reference name = take(PyUnicode_FromString(kModuleName));
  if (host::check(PyDict_Contains(loaded, name.get())) != 0) return false;
  host::check(PyDict_SetItem(loaded, name.get(), module));
  return true;
}

void unregister_module() noexcept {
  if (PyDict_DelItemString(PyImport_GetModuleDict(), kModuleName) < 0) PyErr_Clear();
}

void load(PyObject* module) {
  if (recorded_module() == module) return;
  if (recorded_module() != nullptr) {
    raise(PyExc_RuntimeError,
          "Module 'client_manifest' has already been imported. Re-initialisation is not "
          "supported.");
  }
  bool registered = false;
  try {
    record_module(module);
    registered = register_module(module);
    host::make_chunk_buffer_type();
    host::make_context_manager_names();
    bind_all(module);
    system::record_stat_result_type();
    record_bindings();
    accepted::record_own_digest();
    accepted::record_own_file_identity();
  } catch (const std::exception&) {
    // The next import starts anew.
    if (registered) unregister_module();
    forget_module();
    throw;
  }
}

int execute(PyObject* module) noexcept {
  return host::status_boundary([&] { load(module); });
}

std::array<PyModuleDef_Slot, 3> slots{{
    {Py_mod_create, reinterpret_cast<void*>(&create)},
    {Py_mod_exec, reinterpret_cast<void*>(&execute)},
    {0, nullptr},
}};

PyModuleDef definition{
    .m_base = PyModuleDef_HEAD_INIT,
    .m_name = "client_manifest",
    .m_doc = "Shared client-manifest validation and local metadata helpers.",
    .m_size = 0,
    .m_methods = nullptr,
    .m_slots = slots.data(),
    .m_traverse = nullptr,
    .m_clear = nullptr,
    .m_free = nullptr,
};

}  // namespace
}  // namespace client_manifest::frame

PyMODINIT_FUNC PyInit_client_manifest() {
  return PyModuleDef_Init(&client_manifest::frame::definition);
}
