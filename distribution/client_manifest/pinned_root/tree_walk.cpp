// A listing stays at the entry that was gone into, so that its name is at hand on the way back.
#include "pinned_root/tree_walk.h"

#include <utility>
#include <vector>

#include "host/interpreter_lock.h"
#include "host/text_form.h"
#include "pinned_root/refusal.h"
#include "system/calls.h"
#include "system/directory_listing.h"

namespace client_manifest::pinned_root {
namespace {

using system::DirectoryListing;
using system::OwnedDescriptor;

struct Level {
  OwnedDescriptor directory;
  DirectoryListing listing;
  std::size_t path_length = 0;
  bool changed = false;
};

}  // namespace

class TreeWalk {
 public:
  explicit TreeWalk(TreeVisitor& visitor) : visitor_(&visitor) {}

  void run(OwnedDescriptor directory) {
    try {
      descend(std::move(directory));
      while (!levels_.empty()) step();
    } catch (...) {
      throw unwound(Refusal::in_flight());
    }
  }

 private:
  // Goes into the directory to which the path leads.
  void descend(OwnedDescriptor directory) {
    Level& below = levels_.emplace_back();
    below.directory = std::move(directory);
    below.path_length = path().size();
    below.listing = DirectoryListing(below.directory.get());
  }

  void step() {
    signals_.step();
    Level& here = levels_.back();
    if (here.listing.next()) {
      handle(here, next_entry(here));
    } else {
      ascend();
    }
  }

  void handle(Level& here, const Entry& entry) {
    if (visitor_->skips(entry)) return;
    if (here.listing.is_directory()) {
      if (visitor_->enters(entry)) descend(visitor_->open(entry));
    } else if (visitor_->visit(entry)) {
      here.changed = true;
    }
  }

  // Goes back to the directory above.
  void ascend() {
    Level& done = levels_.back();
    done.listing.close();
    visitor_->finish(done.directory.get(), done.changed);
    done.directory.close();
    path().resize(done.path_length);
    levels_.pop_back();
    if (!levels_.empty() && visitor_->leave(entry(levels_.back()))) levels_.back().changed = true;
  }

  Entry next_entry(const Level& here) {
    path().resize(here.path_length);
    if (!path().empty()) path() += '/';
    host::append_text_form_of_name(path(), here.listing.name());
    return entry(here);
  }

  // The entry at which the listing stands, and to which the path leads.
  [[nodiscard]] Entry entry(const Level& here) const {
    const std::size_t start = here.path_length == 0 ? 0 : here.path_length + 1;
    return {.directory = here.directory.get(),
            .name = here.listing.name(),
            .text = std::string_view(path()).substr(start),
            .path = path()};
  }

  // Leaves all levels, the deepest first, on the way of `refusal`.
  Refusal unwound(Refusal refusal) {
    for (; !levels_.empty(); levels_.pop_back()) {
      Level& level = levels_.back();
      level.listing.close();
      try {
        close_before(refusal, level.directory);
      } catch (Refusal& replacement) {
        refusal = std::move(replacement);
      }
    }
    return refusal;
  }

  [[nodiscard]] std::string& path() const noexcept { return visitor_->path_; }

  TreeVisitor* visitor_;
  std::vector<Level> levels_;
  host::SignalPoll signals_;
};

OwnedDescriptor TreeVisitor::open(const Entry& entry) {
  return system::open_directory_at(entry.directory, entry.name);
}

void walk_tree(OwnedDescriptor directory, TreeVisitor& visitor) {
  TreeWalk(visitor).run(std::move(directory));
}

}  // namespace client_manifest::pinned_root
