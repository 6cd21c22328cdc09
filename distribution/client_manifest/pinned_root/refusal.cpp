// Puts refusals into words, chained as the host's `raise ... from` chains them.
#include "pinned_root/refusal.h"

#include "host/handling.h"
#include "host/message.h"
#include "host/text_form.h"
#include "host/value.h"

namespace client_manifest::pinned_root {
namespace {

using host::Error;
using host::Reference;

Reference shown_path(const Subject& subject) {
  if (subject.components != nullptr) return host::joined("/", subject.components);
  if (!subject.entry.empty()) return host::from_text_form(subject.entry);
  return Reference::acquire(subject.path);
}

Error worded(const Wording& wording, const Subject& subject) {
  const Reference path = shown_path(subject);
  if (!path) return {wording.kind, host::text(wording.words)};
  if (subject.label == nullptr) return {wording.kind, host::text(wording.words, path)};
  return {wording.kind, host::text(subject.label, wording.words, path)};
}

Error worded_from(const Error& cause, const Wording& wording, const Subject& subject) {
  const host::Handling handling(cause);
  return worded(wording, subject).from(cause);
}

}  // namespace

Error translated(Error failed, const Clauses& clauses, const Subject& subject) {
  if (!failed.matches(PyExc_OSError)) return failed;
  const Wording& clause = failed.matches(PyExc_FileNotFoundError) ? clauses.missing : clauses.other;
  return clause ? worded_from(failed, clause, subject) : std::move(failed);
}

Refusal Refusal::in_flight() {
  try {
    throw;
  } catch (Refusal& refusal) {
    return std::move(refusal);
  } catch (system::Failure& failure) {
    return Refusal(std::move(failure));
  } catch (host::Error& error) {
    return Refusal(std::move(error));
  }
}

Refusal Refusal::translated(Clauses clauses, const Subject& subject) && {
  clauses_ = clauses;
  subject_ = subject;
  return std::move(*this);
}

Refusal Refusal::during(Refusal other) && {
  context_ = std::make_unique<Refusal>(std::move(other));
  return std::move(*this);
}

Refusal Refusal::replaced_by(Wording wording) && {
  replacement_ = wording;
  return std::move(*this);
}

Error Refusal::original() && {
  if (error_) return std::move(*error_).taken();
  if (!failure_) return worded(wording_, subject_);
  return pinned_root::translated(std::move(*failure_).as_host_error(), clauses_, subject_);
}

Error Refusal::in_context() && {
  if (!context_) return std::move(*this).original();
  const Error context = std::move(*context_).in_words();
  const host::Handling handling(context);
  return std::move(*this).original();
}

Error Refusal::in_words() && {
  const Wording replacement = replacement_;
  Error error = std::move(*this).in_context();
  if (!replacement || !(error.matches(PyExc_OSError) || error.matches(PyExc_ValueError))) {
    return error;
  }
  return worded_from(error, replacement, {});
}

void close_before(Refusal& refusal, system::OwnedDescriptor& descriptor) {
  try {
    descriptor.close();
  } catch (...) {
    throw Refusal::in_flight().during(std::move(refusal));
  }
}

}  // namespace client_manifest::pinned_root
