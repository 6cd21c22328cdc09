// A handle goes back to the boundary that its root has then.
#include "windows/owned_handle.h"

#include <optional>

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
  } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): closed in silence
  } catch (...) {
    // Nothing of ours throws anything else: the host is ending this thread.
    host::park_thread();
  }
}

void close_all(std::initializer_list<OwnedHandle*> handles) {
  std::optional<host::Error> failure;
  for (OwnedHandle* const handle : handles) {
    try {
      std::optional<host::Handling> handling;
      if (failure) handling.emplace(*failure);
      handle->close();
    } catch (host::Error& later) {
      failure.emplace(std::move(later));
    }
  }
  if (failure) throw host::Error(std::move(*failure));
}

}  // namespace client_manifest::windows
