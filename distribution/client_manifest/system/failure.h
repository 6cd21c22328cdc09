// A failed system call: its error number and the name it was given, until it can be made the
// host's OSError. It can be thrown and caught without the interpreter lock.
#pragma once

#include <exception>
#include <optional>
#include <string>

#include "host/error.h"

namespace client_manifest::system {

class Failure : public std::exception {
 public:
  explicit Failure(int number) noexcept : number_(number) {}
  Failure(int number, const char* name) : number_(number), name_(name) {}

  // A signal handler raised while the call waited: its exception ends the call.
  explicit Failure(host::Error raised) noexcept : raised_(std::move(raised)) {}

  [[nodiscard]] bool is(int number) const noexcept { return number_ == number; }

  // The host's OSError for it, of the class that fits the number, with the name that was handed to
  // the system; or what the signal handler raised. Needs the lock.
  [[nodiscard]] host::Error as_host_error() &&;

  [[nodiscard]] const char* what() const noexcept override { return "a failed system call"; }

 private:
  int number_ = 0;
  std::optional<std::string> name_;
  std::optional<host::Error> raised_;
};

}  // namespace client_manifest::system
