// The stat key: the five integers by which one unchanged file is recognised.
#pragma once

#include "client_manifest.h"
#include "system/file_stat.h"

namespace client_manifest::accepted {

[[nodiscard]] host::Reference stat_nanoseconds(PyObject* file_stat, PyObject* field);
// (size, modification time, change time, device, inode), times in nanoseconds.
[[nodiscard]] host::Reference regular_file_stat_key(PyObject* file_stat);

extern const host::Operation kStatNanoseconds;
extern const host::Operation kRegularFileStatKey;

namespace bound {

// Whether both names above are bound to what the load has bound them to, so that the keys of two
// looks can be compared without making them.
[[nodiscard]] bool has_own_stat_key();

[[nodiscard]] host::Reference regular_file_stat_key(PyObject* file_stat);

// Whether the keys of two looks differ.
[[nodiscard]] bool stat_keys_differ(const system::FileStat& one, const system::FileStat& other);
[[nodiscard]] bool stat_keys_differ(const system::FileStat& one, PyObject* other);

}  // namespace bound

}  // namespace client_manifest::accepted
