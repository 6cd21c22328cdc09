// What becomes of a daemon thread that is inside the module when the host shuts down.
//
// The host ends such a thread the next time it wants the interpreter lock, by unwinding its stack,
// and on the way the clean-up of our frames would run: without the lock, on objects that the main
// thread is taking apart. So a thread that has been given up cleans nothing up, and the first of
// our frames that could stop the unwinding parks it until the process ends.
#pragma once

#include "host/python.h"

namespace client_manifest::host {

// Whether the host has given the calling thread up. The thread that shuts the host down is not: it
// runs finalisers, which may use the module.
[[nodiscard]] bool is_given_up_while_finalising() noexcept;
[[nodiscard]] inline bool is_given_up() noexcept {
  return _Py_IsFinalizing() != 0 && is_given_up_while_finalising();
}

[[noreturn]] void park_thread() noexcept;

}  // namespace client_manifest::host
