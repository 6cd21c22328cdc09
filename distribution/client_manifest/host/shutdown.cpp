// Parks threads that the host has given up.
#include "host/shutdown.h"

#include <chrono>
#include <thread>

namespace client_manifest::host {

void park_thread() noexcept {
  for (;;) std::this_thread::sleep_for(std::chrono::hours(1));
}

}  // namespace client_manifest::host
