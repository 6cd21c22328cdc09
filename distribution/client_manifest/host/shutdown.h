// What becomes of a daemon thread that is inside the module when the host shuts down.
//
// The host ends such a thread the next time it wants the interpreter lock, by unwinding its stack,
// and on the way the clean-up of our frames would run: without the lock, on objects that the main
// thread is taking apart. So nothing is cleaned up once the host shuts down, and the first of our
// frames that could stop the unwinding parks the thread until the process ends.
#pragma once

#include "host/python.h"

namespace client_manifest::host {

[[nodiscard]] inline bool is_shutting_down() noexcept { return _Py_IsFinalizing() != 0; }

[[noreturn]] void park_thread() noexcept;

}  // namespace client_manifest::host
