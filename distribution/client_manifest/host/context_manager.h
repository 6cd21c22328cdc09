// The host's `with` around C++ code: whatever leaves the block, the manager's exit runs once.
#pragma once

#include "host/call.h"
#include "host/handling.h"

namespace client_manifest::host {

// Makes the names of both ends of the protocol; once, at load.
void make_context_manager_names();

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
  // A method of the manager's type, past the instance, as the host looks it up. It is not bound to
  // an object of its own: what has been entered could not be left if memory ran out for that.
  class SpecialMethod {
   public:
    SpecialMethod(PyObject* manager, PyObject* name, const char* if_missing);
    template <HostArgument... Arguments>
    [[nodiscard]] Reference operator()(const Arguments&... arguments) const {
      return bound_ ? call(bound_, arguments...) : call(unbound_, manager_, arguments...);
    }

   private:
    Reference manager_;
    Reference unbound_;
    Reference bound_;
  };

  SpecialMethod enter_;
  SpecialMethod exit_;
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
