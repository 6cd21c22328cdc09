// Every system call that the module makes, one function each, all in one place: a trace or an
// injected fault sees each of them, and nothing else in the module talks to the system.
//
// Each function gives the interpreter lock up while it runs (see system/phase.h) and throws when
// the call fails. A call is repeated after EINTR, once signal handlers have run, where the host's
// own function does so (open, fstat, read, fsync); elsewhere EINTR is a failure like any other.
#pragma once

#include <cstddef>
#include <span>

#include "system/file_stat.h"
#include "system/owned_descriptor.h"

namespace client_manifest::system {

// Directories are opened and followed with these flags alone; a link is never followed.
[[nodiscard]] OwnedDescriptor open_top_directory();  // "/"
[[nodiscard]] OwnedDescriptor open_directory_at(int directory, const char* name);

// Opens a leaf for reading, without following a link. It waits for the writer of a FIFO.
[[nodiscard]] OwnedDescriptor open_for_read_at(int directory, const char* name);

// A duplicate that a child process does not inherit.
[[nodiscard]] OwnedDescriptor duplicate(int descriptor);

void close(int descriptor);

[[nodiscard]] FileStat stat_descriptor(int descriptor);
[[nodiscard]] FileStat stat_at(int directory, const char* name);  // of a link, not of its target

void make_directory_at(int directory, const char* name);  // mode 0o755
void synchronize(int descriptor);                         // fsync

void rewind(int descriptor);

// Reads until `buffer` is full or the file has ended; gives the number of bytes read.
[[nodiscard]] std::size_t read_full(int descriptor, std::span<std::byte> buffer);

}  // namespace client_manifest::system
