// An owned reference to a host object: it is given up exactly once, on every exit.
//
// There are four verbs and no others: `steal` takes over a reference that somebody gave us,
// `acquire` adds one to an object that somebody else owns, `get` lends it, `release` hands it on.
// A bare `PyObject*` is always borrowed. It may be held across a call that can run foreign code
// only if something on the stack owns the object for as long.
#pragma once

#include <utility>

#include "host/shutdown.h"

namespace client_manifest::host {

class Reference {
 public:
  Reference() noexcept = default;
  Reference(Reference&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  Reference(const Reference&) = delete;
  Reference& operator=(const Reference&) = delete;
  Reference& operator=(Reference&& other) noexcept {
    // The old object goes last: giving it up can run foreign code that looks at this reference.
    const Reference old(std::exchange(object_, std::exchange(other.object_, nullptr)));
    return *this;
  }
  ~Reference() {
    if (object_ == nullptr || is_given_up()) return;
    if (Py_REFCNT(object_) > 1) {
      Py_DECREF(object_);
    } else {
      give_up_last(object_);
    }
  }

  [[nodiscard]] static Reference steal(PyObject* object) noexcept { return Reference(object); }
  [[nodiscard]] static Reference acquire(PyObject* object) noexcept {
    return Reference(Py_XNewRef(object));
  }
  [[nodiscard]] PyObject* get() const noexcept { return object_; }
  [[nodiscard]] PyObject* release() noexcept { return std::exchange(object_, nullptr); }

  explicit operator bool() const noexcept { return object_ != nullptr; }

 private:
  // Ends the object; what runs then can be foreign code.
  static void give_up_last(PyObject* object) noexcept;

  explicit Reference(PyObject* object) noexcept : object_(object) {}

  PyObject* object_ = nullptr;
};

}  // namespace client_manifest::host
