// A host exception on a way that may lead through code without the interpreter lock. Wherever it
// is given up, that is done with the lock held.
#pragma once

#include "host/error.h"
#include "host/interpreter_lock.h"

namespace client_manifest::host {

class CarriedError {
 public:
  explicit CarriedError(Error error) noexcept : error_(std::move(error)) {}
  CarriedError(CarriedError&&) noexcept = default;
  CarriedError(const CarriedError&) = delete;
  CarriedError& operator=(CarriedError&& other) noexcept {
    const CarriedError old(std::exchange(error_, std::move(other.error_)));
    return *this;
  }
  CarriedError& operator=(const CarriedError&) = delete;
  ~CarriedError() {
    if (error_.exception() == nullptr || is_given_up()) return;
    const LockTaken lock;
    const Error given_up(std::move(error_));
  }

  [[nodiscard]] bool matches(PyObject* kind) const {
    const LockTaken lock;
    return error_.matches(kind);
  }

  [[nodiscard]] Error taken() && noexcept { return std::move(error_); }

 private:
  Error error_;
};

}  // namespace client_manifest::host
