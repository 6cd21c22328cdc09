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
  LockReleased* const released = LockReleased::current_;
  if (released == nullptr) {
    check(PyErr_CheckSignals());
    return;
  }
  // A handler is foreign code: while it runs, this thread counts as one that holds the lock.
  LockReleased::current_ = nullptr;
  LockReleased::retake(released->thread_);
  const auto give_up_again = [&]() noexcept {
    released->thread_ = PyEval_SaveThread();
    LockReleased::current_ = released;
  };
  if (PyErr_CheckSignals() < 0) {
    Error raised = Error::fetch();
    give_up_again();
    throw Error(std::move(raised));
  }
  give_up_again();
}

}  // namespace client_manifest::host
