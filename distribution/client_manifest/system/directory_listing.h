// Lists an open directory from its beginning, in the order in which the system yields its entries
// and in bounded memory: nothing is collected first, so that a walk may change what it lists.
//
// A listing has a position of its own, wherever the directory can be opened anew: several of one
// directory do not disturb each other. The descriptor that it was given stays open and stays the
// caller's. Needs no interpreter lock.
#pragma once

#include <memory>

namespace client_manifest::system {

class DirectoryListing {
 public:
  DirectoryListing() noexcept = default;
  explicit DirectoryListing(int directory);

  // Goes to the next entry, neither "." nor ".."; false at the end.
  [[nodiscard]] bool next();

  // The name of the entry, for as long as the listing stands at it.
  [[nodiscard]] const char* name() const noexcept { return name_; }

  // Whether the entry is a directory itself, and not a link to one. One that has vanished is none.
  [[nodiscard]] bool is_directory() const;

  void close() noexcept { stream_.reset(); }

 private:
  // As the host does, the stream is closed without a look at how that ends: nothing was written.
  struct Closed {
    void operator()(void* stream) const noexcept;
  };
  enum class Type { unknown, directory, other };

  int directory_ = -1;
  std::unique_ptr<void, Closed> stream_;
  const char* name_ = nullptr;
  Type type_ = Type::unknown;
};

}  // namespace client_manifest::system
