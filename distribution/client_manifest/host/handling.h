// The host's `except` and `finally` around C++ code: what fails while an exception is being
// handled gets that exception as its context, and clean-up that fails replaces what was in flight.
#pragma once

#include <new>
#include <type_traits>

#include "host/error.h"
#include "host/shutdown.h"

namespace client_manifest::host {

// For as long as it lives, the host counts `error` as the exception that is being handled.
class Handling {
 public:
  explicit Handling(const Error& error) noexcept : thread_(PyThreadState_Get()) {
    item_.exc_value = Py_NewRef(error.exception());
    item_.previous_item = thread_->exc_info;
    thread_->exc_info = &item_;
  }
  Handling(const Handling&) = delete;
  Handling(Handling&&) = delete;
  Handling& operator=(const Handling&) = delete;
  Handling& operator=(Handling&&) = delete;
  ~Handling() {
    if (is_given_up()) return;
    thread_->exc_info = item_.previous_item;
    // Foreign code may have put another exception in its place; the place owns what stands there.
    const Reference handled = Reference::steal(item_.exc_value);
  }

 private:
  PyThreadState* thread_;
  _PyErr_StackItem item_{};
};

// Runs `work`; memory that C++ could not get leaves as the host's MemoryError.
template <class Work>
auto with_memory_errors(Work&& work) -> decltype(work()) {
  try {
    return work();
  } catch (const std::bad_alloc&) {
    PyErr_NoMemory();
    throw Error::fetch();
  }
}

// Runs `work`, then `cleanup` on every exit, as `try: work() finally: cleanup()` does.
template <class Work, class Cleanup>
auto guaranteed(Work&& work, Cleanup&& cleanup) -> decltype(work()) {
  const auto guarded = [&]() -> decltype(work()) {
    try {
      return with_memory_errors(work);
    } catch (const Error& failure) {
      const Handling handling(failure);
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
