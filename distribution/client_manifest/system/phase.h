// Runs a phase of system calls without the interpreter lock. A failed call leaves it as the host's
// OSError, made once the lock is held again; within a longer phase it travels on as it is.
#pragma once

#include "host/interpreter_lock.h"
#include "system/failure.h"

namespace client_manifest::system {

template <class Work>
auto phase(Work&& work) -> decltype(work()) {
  if (host::LockReleased::here()) return work();
  try {
    const host::LockReleased released;
    return work();
  } catch (Failure& failure) {
    throw std::move(failure).as_host_error();
  }
}

}  // namespace client_manifest::system
