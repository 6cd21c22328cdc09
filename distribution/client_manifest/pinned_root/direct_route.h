// The direct route of a read: the same steps as through the instance, without the host objects in
// between, for a root on which nothing was overridden.
//
// A proved read is some ten operations that call each other through the instance. When every one
// of them is still ours, nobody can tell whether a file object and a stat result were made on the
// way, and the whole of it runs in a few phases without the interpreter lock. The functions that
// open, walk and prove are the same ones on both routes, and so are the words of their refusals.
#pragma once

#include <optional>

#include "client_manifest.h"
#include "host/handling.h"
#include "pinned_root/instance.h"
#include "pinned_root/refusal.h"
#include "system/file_names.h"
#include "system/file_stat.h"
#include "system/owned_descriptor.h"

namespace client_manifest::pinned_root {

// What a direct route is wanted for, and so which operations must be ours.
enum class Purpose { read, hash, stat };

class DirectRoute {
 public:
  // The route for a contained path of `self`, or nothing if anything on it was replaced, or if the
  // instance is in no state to be read from: then its own operations have their say.
  [[nodiscard]] static std::optional<DirectRoute> find(PyObject* self, const Subject& subject,
                                                       Purpose purpose);

  // The steps, in the order in which they are taken. They need no interpreter lock.
  void open();
  [[nodiscard]] system::FileStat look() const;
  void prove_path(const system::FileStat& expected) const;
  void prove_root() const;
  void close() { file_.close(); }

  // Takes all the steps of `steps` in one phase, then closes the file, as a `with` block would.
  template <class Steps>
  void run(Steps&& steps) {
    host::guaranteed(
        [&] {
          in_words([&] {
            steps();
            close();
          });
          host::run_signal_handlers();
        },
        [&] { close(); });
  }

  [[nodiscard]] int file() const noexcept { return file_.get(); }
  [[nodiscard]] const Subject& subject() const noexcept { return subject_; }

 private:
  DirectRoute(const Subject& subject, int pinned);

  // Learns how the root proves itself; false if it is in no state to.
  [[nodiscard]] bool find_way_to_root(const Instance& root);

  Subject subject_;
  system::FileNames segments_;
  int pinned_;
  system::OwnedDescriptor file_;

  // How the root proves itself: from the top down its path, or from its anchor down its chain.
  std::optional<int> anchor_;
  host::Reference root_components_;
  host::Reference root_label_;
  system::FileNames root_segments_;
};

}  // namespace client_manifest::pinned_root
