// Tells threads that the host has given up, and parks them.
#include "host/shutdown.h"

#include <chrono>
#include <thread>

namespace client_manifest::host {

bool is_given_up_while_finalising() noexcept {
  const PyThreadState* const holder = _PyThreadState_UncheckedGet();
  return holder == nullptr || holder->thread_id != PyThread_get_thread_ident();
}

void park_thread() noexcept {
  for (;;) std::this_thread::sleep_for(std::chrono::hours(1));
}

}  // namespace client_manifest::host
