// Keeps track of which threads have given the interpreter lock up, and lets signals in meanwhile.
#include "host/interpreter_lock.h"

#include "host/error.h"
#include "host/shutdown.h"

namespace client_manifest::host {

thread_local LockReleased* LockReleased::current_ = nullptr;

void LockReleased::retake(PyThreadState* thread) noexcept {
  try {
    PyEval_RestoreThread(thread);
  } catch (...) {
    // The host ends threads that want the lock while it shuts down.
    park_thread();
  }
}

void run_signal_handlers() {
  const LockTaken lock;
  check(PyErr_CheckSignals());
}

}  // namespace client_manifest::host
