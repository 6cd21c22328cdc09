// Every system call that the module makes, one function each, all in one place but for the listing
// of directories (see system/directory_listing.h): a trace or an injected fault sees each of them.
//
// Each function that can wait gives the interpreter lock up while it runs (see system/phase.h) and
// throws when the call fails. A call is repeated after EINTR, once signal handlers have run, where
// the host's own function does so (open, fstat, read, write, fsync); elsewhere EINTR is a failure
// like any other.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "system/file_stat.h"
#include "system/owned_descriptor.h"

namespace client_manifest::system {

// Directories are opened and followed with these flags alone; a link is never followed.
[[nodiscard]] OwnedDescriptor open_top_directory();  // "/"
[[nodiscard]] OwnedDescriptor open_directory_at(int directory, const char* name);

// Opens a leaf for reading, without following a link. It waits for the writer of a FIFO.
[[nodiscard]] OwnedDescriptor open_for_read_at(int directory, const char* name);

// Opens a leaf that is to prove itself a regular file, without following a link. It does not wait
// at a FIFO.
[[nodiscard]] OwnedDescriptor open_source_at(int directory, const char* name);

// Opens a leaf for reading and writing, without following a link; with `create`, a missing one is
// made with mode 0o600.
[[nodiscard]] OwnedDescriptor open_for_update_at(int directory, const char* name, bool create);

// Makes a file for writing, with mode 0o600, where nothing stands yet.
[[nodiscard]] OwnedDescriptor create_for_write_at(int directory, const char* name);

// A duplicate that a child process does not inherit.
[[nodiscard]] OwnedDescriptor duplicate(int descriptor);

void close(int descriptor);

[[nodiscard]] FileStat stat_descriptor(int descriptor);
// Of a link, not of its target.
[[nodiscard]] FileStat stat_at(int directory, const char* name);
// The same, or nothing where nothing stands.
[[nodiscard]] std::optional<FileStat> stat_if_present_at(int directory, const char* name);

// With mode 0o755; false where something stands already.
[[nodiscard]] bool make_directory_at(int directory, const char* name);
void remove_directory_at(int directory, const char* name);
void unlink_at(int directory, const char* name);
// No failure where nothing stands.
void unlink_if_present_at(int directory, const char* name);

// What stands at the second name is replaced, in one step that nobody sees half done.
void rename_at(int from, const char* name, int to, const char* new_name);
// A link that is named is linked itself, and not followed.
void link_at(int from, const char* name, int to, const char* new_name);

void synchronize(int descriptor);  // fsync

void rewind(int descriptor);

// Reads until `buffer` is full or the file has ended; gives the number of bytes read.
[[nodiscard]] std::size_t read_full(int descriptor, std::span<std::byte> buffer);

// Writes as much as the system takes in one call; gives the number of bytes written.
[[nodiscard]] std::size_t write_some(int descriptor, std::span<const std::byte> bytes);

[[nodiscard]] std::int64_t process_id();

}  // namespace client_manifest::system
