// The listing on POSIX: a directory stream on the same directory opened anew. A duplicate would
// share its position with all others, and two listings at once would spoil each other.
#ifndef _WIN32

#include <dirent.h>

#include <cerrno>
#include <string_view>

#include "system/calls.h"
#include "system/directory_listing.h"
#include "system/failure.h"

namespace client_manifest::system {
namespace {

DIR* as_stream(void* stream) { return static_cast<DIR*>(stream); }

OwnedDescriptor opened_anew(int directory) {
  try {
    return open_directory_at(directory, ".");
  } catch (const Failure& failure) {
    if (!failure.is_denied()) throw;
    // One that may be listed but not searched: it gives away its names, and nothing more.
    return duplicate(directory);
  }
}

}  // namespace

void DirectoryListing::Closed::operator()(void* stream) const noexcept {
  static_cast<void>(::closedir(as_stream(stream)));
}

DirectoryListing::DirectoryListing(int directory) : directory_(directory) {
  OwnedDescriptor own = opened_anew(directory);
  stream_.reset(::fdopendir(own.get()));
  if (!stream_) throw Failure(errno);
  static_cast<void>(own.release());
  ::rewinddir(as_stream(stream_.get()));
}

bool DirectoryListing::next() {
  for (;;) {
    errno = 0;
    const dirent* const entry = ::readdir(as_stream(stream_.get()));
    if (entry == nullptr) {
      if (errno != 0) throw Failure(errno);
      return false;
    }
    const std::string_view name = entry->d_name;
    if (name == "." || name == "..") continue;
    name_ = entry->d_name;
    type_ = entry->d_type == DT_UNKNOWN ? Type::unknown
                                        : (entry->d_type == DT_DIR ? Type::directory : Type::other);
    return true;
  }
}

bool DirectoryListing::is_directory() const {
  if (type_ != Type::unknown) return type_ == Type::directory;
  try {
    return stat_at(directory_, name_).is_directory();
  } catch (const Failure& failure) {
    if (failure.is_missing()) return false;
    throw;
  }
}

}  // namespace client_manifest::system

#endif  // _WIN32
