// An entry is held open for as long as the walk is at it or below it, and closed on every exit.
#include "windows/tree_walk.h"

#include "host/handling.h"
#include "host/message.h"
#include "host/value.h"

namespace client_manifest::windows {
namespace {

using host::Error;
using host::Reference;

class Walk {
 public:
  Walk(const Root& root, TreeVisitor& visitor) : root_(root), visitor_(&visitor) {}

  void run(PyObject* directory, PyObject* prefix) {
    try {
      host::with_memory_errors([&] {
        descend({}, directory, Reference::acquire(prefix));
        while (!levels_.empty()) step();
      });
    } catch (Error& failure) {
      throw unwound(std::move(failure));
    }
  }

 private:
  // One directory on the way down. The first one is the caller's; the others are entries.
  struct Level {
    OwnedHandle entry;
    Reference directory;
    Reference path;
    host::Iteration names;
  };

  void descend(OwnedHandle entry, PyObject* directory, Reference path) {
    Reference walked = Reference::acquire(directory);
    closed_on_failure(entry, [&] { visitor_->prove(walked.get(), path.get()); });
    host::Iteration names = closed_on_failure(
        entry, [&] { return host::Iteration(root_.boundary().list_names(walked.get()).get()); });
    levels_.push_back({std::move(entry), std::move(walked), std::move(path), std::move(names)});
  }

  void step() {
    Level& here = levels_.back();
    const Reference name = here.names.next();
    if (!name) {
      ascend();
    } else if (!visitor_->skips(name.get())) {
      handle(here, name);
    }
  }

  void handle(const Level& here, const Reference& name) {
    Reference path = host::is_true(here.path.get()) ? host::text(here.path, "/", name)
                                                    : Reference::acquire(name.get());
    OwnedHandle entry =
        root_.boundary().open_entry(here.directory.get(), name.get(), /*deletes=*/true);
    const bool goes_on_below = closed_on_failure(entry, [&] {
      if (!root_.boundary().is_of_kind(entry.get(), "directory")) {
        visitor_->visit(entry, name.get(), path.get());
        return false;
      }
      if (!visitor_->enters(path.get())) return false;
      root_.require_safe_directory(entry, path.get());
      return true;
    });
    if (goes_on_below) {
      PyObject* const directory = entry.get();
      descend(std::move(entry), directory, std::move(path));
    } else {
      entry.close();
    }
  }

  // Goes back to the directory above.
  void ascend() {
    Level& done = levels_.back();
    visitor_->prove(done.directory.get(), done.path.get());
    if (done.entry) visitor_->leave(done.entry, done.path.get());
    done.entry.close();
    levels_.pop_back();
  }

  // Leaves all levels, the deepest first, on the way of `failure`.
  Error unwound(Error failure) {
    for (; !levels_.empty(); levels_.pop_back()) {
      try {
        const host::Handling handling(failure);
        levels_.back().entry.close();
      } catch (Error& replacement) {
        failure = std::move(replacement);
      }
    }
    return failure;
  }

  Root root_;
  TreeVisitor* visitor_;
  std::vector<Level> levels_;
};

}  // namespace

void walk_tree(const Root& root, PyObject* directory, PyObject* prefix, TreeVisitor& visitor) {
  Walk(root, visitor).run(directory, prefix);
}

}  // namespace client_manifest::windows
