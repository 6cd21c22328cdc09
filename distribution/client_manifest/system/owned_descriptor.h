// An owned descriptor: closed exactly once, on every exit.
//
// `close` reports a failing close; a descriptor that goes out of scope is closed in silence, for
// another failure is on its way then. After a failing close the number counts as given back, as
// the kernel has it: closing it again could hit a descriptor that another thread has opened since.
#pragma once

#include <utility>

namespace client_manifest::system {

class OwnedDescriptor {
 public:
  OwnedDescriptor() noexcept = default;
  explicit OwnedDescriptor(int number) noexcept : number_(number) {}
  OwnedDescriptor(OwnedDescriptor&& other) noexcept : number_(other.release()) {}
  OwnedDescriptor(const OwnedDescriptor&) = delete;
  OwnedDescriptor& operator=(const OwnedDescriptor&) = delete;
  OwnedDescriptor& operator=(OwnedDescriptor&& other) noexcept {
    const OwnedDescriptor old(std::exchange(number_, other.release()));
    return *this;
  }
  ~OwnedDescriptor();

  [[nodiscard]] int get() const noexcept { return number_; }
  [[nodiscard]] int release() noexcept { return std::exchange(number_, kNone); }
  [[nodiscard]] explicit operator bool() const noexcept { return number_ != kNone; }

  void close();  // throws what a system call throws

 private:
  static constexpr int kNone = -1;

  int number_ = kNone;
};

}  // namespace client_manifest::system
