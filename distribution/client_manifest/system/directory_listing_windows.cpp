// The listing on Windows: refused, like all that is relative to a directory's descriptor. Handles
// of directories are listed by windows/enumeration.cpp.
#ifdef _WIN32

#include "system/calls.h"
#include "system/directory_listing.h"

namespace client_manifest::system {

void DirectoryListing::Closed::operator()(void* /*stream*/) const noexcept {}

DirectoryListing::DirectoryListing(int directory) : directory_(directory) {
  // The first step of any listing, and the refusal.
  static_cast<void>(duplicate(directory_));
}

bool DirectoryListing::next() { return false; }

bool DirectoryListing::is_directory() const { return type_ == Type::directory; }

}  // namespace client_manifest::system

#endif  // _WIN32
