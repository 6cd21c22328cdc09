// A failed system call: its error number and the names it was given, until it can be made the
// host's OSError. It can be thrown and caught without the interpreter lock.
#pragma once

#include <cerrno>
#include <exception>
#include <optional>
#include <string>

#include "host/carried_error.h"

namespace client_manifest::system {

class Failure : public std::exception {
 public:
  explicit Failure(int number) noexcept : number_(number) {}
  Failure(int number, const char* name) : number_(number), name_(name) {}
  Failure(int number, const char* name, const char* new_name)
      : number_(number), name_(name), new_name_(new_name) {}

  // A signal handler raised while the call waited: its exception ends the call.
  explicit Failure(host::Error raised) noexcept : raised_(std::move(raised)) {}

  // Whether it is the OSError of that number, or what a signal handler raised is of its class.
  [[nodiscard]] bool is_missing() const;        // ENOENT
  [[nodiscard]] bool is_there_already() const;  // EEXIST
  [[nodiscard]] bool is_denied() const noexcept { return number_ == EACCES; }
  // Whether it is an OSError at all.
  [[nodiscard]] bool is_os_error() const;

  // The host's OSError for it, of the class that fits the number, with the names that were handed
  // to the system; or what the signal handler raised. Needs the lock.
  [[nodiscard]] host::Error as_host_error() &&;

  [[nodiscard]] const char* what() const noexcept override { return "a failed system call"; }

 private:
  int number_ = 0;
  std::optional<std::string> name_;
  std::optional<std::string> new_name_;
  std::optional<host::CarriedError> raised_;
};

}  // namespace client_manifest::system
