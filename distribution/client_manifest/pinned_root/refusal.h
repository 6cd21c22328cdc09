// A refusal that is not yet in words: thrown and caught without the interpreter lock, put into the
// caller's words once the lock is held again.
#pragma once

#include <exception>
#include <memory>
#include <optional>
#include <string_view>

#include "system/owned_descriptor.h"
#include "system/phase.h"

namespace client_manifest::pinned_root {

// What the words of a refusal speak of, formatted only when something is refused. All of it is
// borrowed from the operation that is at work.
struct Subject {
  PyObject* label = nullptr;
  PyObject* path = nullptr;
  PyObject* components = nullptr;  // in the place of a path: shown joined by "/"
  std::string_view entry = {};     // in the place of a path: where a walk stands, in text form
};

// An exception in words: "{label}{words}{path}", without what the subject lacks.
struct Wording {
  PyObject* kind = nullptr;
  const char* words = nullptr;

  [[nodiscard]] explicit operator bool() const noexcept { return words != nullptr; }
};

// What becomes of a failed call: the first clause takes a FileNotFoundError, the other one any
// other OSError. Where a clause has no words the failure passes as the host has it.
struct Clauses {
  Wording missing;
  Wording other;
};

// One clause for every OSError.
[[nodiscard]] inline Clauses any_failure(const Wording& wording) { return {wording, wording}; }

// What becomes of `failed` by the clauses, chained from it; the failure itself where they have no
// words for it. Needs the lock.
[[nodiscard]] host::Error translated(host::Error failed, const Clauses& clauses,
                                     const Subject& subject);

class Refusal : public std::exception {
 public:
  explicit Refusal(Wording wording) noexcept : wording_(wording) {}
  Refusal(Wording wording, const Subject& subject) noexcept
      : wording_(wording), subject_(subject) {}
  explicit Refusal(system::Failure failure) noexcept : failure_(std::move(failure)) {}
  explicit Refusal(host::Error error) noexcept : error_(std::move(error)) {}

  // What is in flight, in the shape of a refusal; to be called in a handler.
  [[nodiscard]] static Refusal in_flight();

  // Says what becomes of the failed call.
  [[nodiscard]] Refusal translated(Clauses clauses, const Subject& subject) &&;

  // Came up while `other` was being handled, and takes its place with it as the context.
  [[nodiscard]] Refusal during(Refusal other) &&;

  // Has `wording` replace this refusal, chained from it, if it turns out to be an OSError or a
  // ValueError.
  [[nodiscard]] Refusal replaced_by(Wording wording) &&;

  // Needs the lock.
  [[nodiscard]] host::Error in_words() &&;

  [[nodiscard]] const char* what() const noexcept override { return "a refusal"; }

 private:
  [[nodiscard]] host::Error original() &&;
  [[nodiscard]] host::Error in_context() &&;

  std::unique_ptr<Refusal> context_;
  std::optional<host::CarriedError> error_;
  std::optional<system::Failure> failure_;
  Clauses clauses_;
  Wording wording_;
  Subject subject_;
  Wording replacement_;
};

// Closes `descriptor` on the way of `refusal`; the failure of the close is thrown in its place.
void close_before(Refusal& refusal, system::OwnedDescriptor& descriptor);

// Runs `work`; if it fails, closes `descriptor` before the failure goes on its way.
template <class Work>
auto closed_on_failure(system::OwnedDescriptor& descriptor, Work&& work) -> decltype(work()) {
  try {
    return work();
  } catch (...) {
    Refusal refusal = Refusal::in_flight();
    close_before(refusal, descriptor);
    throw Refusal(std::move(refusal));
  }
}

// Runs `work` and closes `descriptor` on every exit.
template <class Work>
void closed_in_any_case(system::OwnedDescriptor& descriptor, Work&& work) {
  closed_on_failure(descriptor, std::forward<Work>(work));
  descriptor.close();
}

// Runs a phase of system calls without the lock; what it refuses leaves in words. The outermost
// one only: words need the lock.
template <class Work>
auto in_words(Work&& work) -> decltype(work()) {
  try {
    return system::phase(std::forward<Work>(work));
  } catch (Refusal& refusal) {
    throw std::move(refusal).in_words();
  }
}

}  // namespace client_manifest::pinned_root
