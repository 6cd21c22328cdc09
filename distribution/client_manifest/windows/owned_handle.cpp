// A handle goes back to the boundary that its root has then.
#include "windows/owned_handle.h"

namespace client_manifest::windows {

using host::Reference;

void OwnedHandle::close() {
  if (!handle_) return;
  const Reference handle = release();
  const Reference boundary = host::attribute(root_, names()._boundary);
  static_cast<void>(host::call_method(boundary.get(), names().close, handle));
}

OwnedHandle& OwnedHandle::operator=(OwnedHandle&& other) noexcept {
  const OwnedHandle old(root_, release());
  root_ = other.root_;
  handle_ = other.release();
  return *this;
}

OwnedHandle::~OwnedHandle() {
  if (!handle_ || host::is_given_up()) return;
  try {
    close();
  } catch (...) {
    // The failure that is on its way counts.
    static_cast<void>(handle_);
  }
}

}  // namespace client_manifest::windows
