// Gives the interpreter lock up for as long as a scope lasts, once for a whole phase of work.
//
// Scopes nest: only the outermost one gives the lock up and takes it back, so that a system call
// that is safe on its own costs nothing more inside a longer phase.
#pragma once

#include <utility>

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
  friend class LockTaken;

  static void retake(PyThreadState* thread) noexcept;

  PyThreadState* thread_;
  static thread_local LockReleased* current_;
};

// Takes the lock back for as long as a scope lasts, where the thread has given it up; elsewhere the
// lock is held anyway. What runs meanwhile counts as any other code that holds the lock.
class LockTaken {
 public:
  LockTaken() noexcept : released_(std::exchange(LockReleased::current_, nullptr)) {
    if (released_ != nullptr) LockReleased::retake(released_->thread_);
  }
  LockTaken(const LockTaken&) = delete;
  LockTaken(LockTaken&&) = delete;
  LockTaken& operator=(const LockTaken&) = delete;
  LockTaken& operator=(LockTaken&&) = delete;
  ~LockTaken() {
    if (released_ == nullptr) return;
    released_->thread_ = PyEval_SaveThread();
    LockReleased::current_ = released_;
  }

 private:
  LockReleased* released_;
};

// Runs the signal handlers that wait for this thread, with the lock held, whether or not the
// caller holds it. Throws the Error that a handler raised.
void run_signal_handlers();

// Does so in long loops: cheap enough to be asked for at every step.
class SignalPoll {
 public:
  void step() {
    if (++steps_ % kStepsBetween == 0) run_signal_handlers();
  }

 private:
  static constexpr unsigned kStepsBetween = 1024;

  unsigned steps_ = 0;
};

}  // namespace client_manifest::host
