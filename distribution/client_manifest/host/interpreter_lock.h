// Gives the interpreter lock up for as long as a scope lasts, once for a whole phase of work.
//
// Scopes nest: only the outermost one gives the lock up and takes it back, so that a system call
// that is safe on its own costs nothing more inside a longer phase.
#pragma once

#include "host/python.h"

namespace client_manifest::host {

class LockReleased {
 public:
  LockReleased() noexcept : thread_(PyEval_SaveThread()) { current_ = this; }
  LockReleased(const LockReleased&) = delete;
  LockReleased(LockReleased&&) = delete;
  LockReleased& operator=(const LockReleased&) = delete;
  LockReleased& operator=(LockReleased&&) = delete;
  ~LockReleased() {
    current_ = nullptr;
    retake(thread_);
  }

  // Whether the calling thread has given the lock up.
  [[nodiscard]] static bool here() noexcept { return current_ != nullptr; }

 private:
  friend void run_signal_handlers();

  static void retake(PyThreadState* thread) noexcept;

  PyThreadState* thread_;
  static thread_local LockReleased* current_;
};

// Runs the signal handlers that wait for this thread, with the lock held, whether or not the
// caller holds it. Throws the Error that a handler raised.
void run_signal_handlers();

}  // namespace client_manifest::host
