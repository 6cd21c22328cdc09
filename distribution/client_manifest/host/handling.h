// The host's `except` and `finally` around C++ code: what fails while an exception is being
// handled gets that exception as its context, and clean-up that fails replaces what was in flight.
#pragma once

#include "host/error.h"
#include "host/shutdown.h"

namespace client_manifest::host {

// For as long as it lives, the host counts `error` as the exception that is being handled.
class Handling {
 public:
  explicit Handling(const Error& error) noexcept
      : thread_(PyThreadState_Get()), exception_(Reference::acquire(error.exception())) {
    item_.exc_value = exception_.get();
    item_.previous_item = thread_->exc_info;
    thread_->exc_info = &item_;
  }
  Handling(const Handling&) = delete;
  Handling(Handling&&) = delete;
  Handling& operator=(const Handling&) = delete;
  Handling& operator=(Handling&&) = delete;
  ~Handling() {
    if (!is_given_up()) thread_->exc_info = item_.previous_item;
  }

 private:
  PyThreadState* thread_;
  Reference exception_;
  _PyErr_StackItem item_{};
};

// Runs `work`, then `cleanup` on every exit, as `try: work() finally: cleanup()` does.
template <class Work, class Cleanup>
auto guaranteed(Work&& work, Cleanup&& cleanup) -> decltype(work()) {
  const auto guarded = [&]() -> decltype(work()) {
    try {
      return work();
    } catch (const Error& failure) {
      const Handling handling(failure);
      cleanup();
      throw;
    } catch (const std::exception&) {
      cleanup();
      throw;
    }
  };
  if constexpr (std::is_void_v<decltype(work())>) {
    guarded();
    cleanup();
  } else {
    auto result = guarded();
    cleanup();
    return result;
  }
}

}  // namespace client_manifest::host
