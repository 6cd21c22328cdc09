// The host's `with` around C++ code: whatever leaves the block, the manager's exit runs once.
#pragma once

#include "host/call.h"
#include "host/handling.h"

namespace client_manifest::host {

class ContextManager {
 public:
  // Looks up both ends of the protocol and enters.
  explicit ContextManager(PyObject* manager);

  // What `as` binds.
  [[nodiscard]] PyObject* entered() const noexcept { return entered_.get(); }

  void leave();  // the block ended
  [[nodiscard]] bool leave_after(
      const Error& failure);  // it failed; true: the manager took that up

 private:
  Reference exit_;
  Reference entered_;
};

// `with manager as entered: return block(entered)`. As in the host, a failure of the exit replaces
// what was in flight, and a failure that the exit takes up leaves None behind.
template <class Block>
Reference with(PyObject* manager, Block&& block) {
  ContextManager context(manager);
  Reference result;
  try {
    result = with_memory_errors([&] { return block(context.entered()); });
  } catch (const Error& failure) {
    const Handling handling(failure);
    if (context.leave_after(failure)) return Reference::acquire(Py_None);
    throw;
  }
  context.leave();
  return result;
}

}  // namespace client_manifest::host
