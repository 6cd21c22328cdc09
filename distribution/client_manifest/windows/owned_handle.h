// An owned handle of a boundary: closed exactly once, on every exit. None is no handle, as whoever
// hands handles out may have it: it is never closed.
//
// `close` reports a failing close; a handle that goes out of scope is closed in silence. Operations
// close what they hold aloud; the silent close is for what is lost on the way there.
#pragma once

#include <initializer_list>

#include "client_manifest.h"
#include "host/handling.h"

namespace client_manifest::windows {

class OwnedHandle {
 public:
  OwnedHandle() noexcept = default;
  // A handle that is closed by the boundary of `root`, which outlives it.
  OwnedHandle(PyObject* root, host::Reference handle) noexcept : root_(root) {
    if (handle.get() != Py_None) handle_ = std::move(handle);
  }
  OwnedHandle(OwnedHandle&&) noexcept = default;
  OwnedHandle(const OwnedHandle&) = delete;
  OwnedHandle& operator=(OwnedHandle&& other) noexcept;
  OwnedHandle& operator=(const OwnedHandle&) = delete;
  ~OwnedHandle();

  // None where nothing is held.
  [[nodiscard]] PyObject* get() const noexcept { return handle_ ? handle_.get() : Py_None; }
  [[nodiscard]] host::Reference release() noexcept {
    return handle_ ? std::exchange(handle_, {}) : host::Reference::acquire(Py_None);
  }
  [[nodiscard]] explicit operator bool() const noexcept { return static_cast<bool>(handle_); }

  void close();

 private:
  PyObject* root_ = nullptr;
  host::Reference handle_;
};

// Closes them in this order, each whatever became of those before it; as in nested `finally`
// clauses, a failure replaces an earlier one and has it as its context.
void close_all(std::initializer_list<OwnedHandle*> handles);

// Runs `work`; if it fails, closes `handle` before the failure goes on its way.
template <class Work>
auto closed_on_failure(OwnedHandle& handle, Work&& work) -> decltype(work()) {
  try {
    return host::with_memory_errors(work);
  } catch (const host::Error& failure) {
    const host::Handling handling(failure);
    handle.close();
    throw;
  }
}

}  // namespace client_manifest::windows
