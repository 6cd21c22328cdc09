// The C boundary: no C++ exception crosses it, every one becomes the host's pending exception.
#pragma once

#include <new>

#include "host/error.h"
#include "host/shutdown.h"

namespace client_manifest::host {

// Runs `work` and gives the host what it returned; a failure is made pending and null is given.
template <class Work>
PyObject* boundary(Work&& work) noexcept {
  try {
    return work().release();
  } catch (Error& error) {
    std::move(error).restore();
  } catch (const std::bad_alloc&) {
    PyErr_NoMemory();
  } catch (const std::exception& error) {
    PyErr_SetString(PyExc_SystemError, error.what());
  } catch (...) {
    // Nothing of ours throws anything else: the host is ending this thread.
    park_thread();
  }
  return nullptr;
}

// The same for a host call that wants a number: 0 when `work` ended, -1 when it failed.
template <class Work>
int status_boundary(Work&& work) noexcept {
  const Reference done = Reference::steal(boundary([&] {
    work();
    return Reference::acquire(Py_None);
  }));
  return done ? 0 : -1;
}

}  // namespace client_manifest::host
