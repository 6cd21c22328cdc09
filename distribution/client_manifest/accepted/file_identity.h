// What hashing a contained file proved: its digest and the stat key under which it was read.
//
// The host's record is made when somebody wants to see it; between our own operations the values
// travel without one.
#pragma once

#include "client_manifest.h"
#include "system/file_stat.h"

namespace client_manifest::accepted {

class FileIdentity {
 public:
  // Measured here: `stat` is the last look at the file.
  FileIdentity(const system::FileStat& stat, host::Reference sha256)
      : stat_(stat), sha256_(std::move(sha256)) {}
  // Given by an operation of somebody else's: any object with the record's attributes.
  explicit FileIdentity(host::Reference record) : record_(std::move(record)) {}

  [[nodiscard]] host::Reference size_bytes() const;
  [[nodiscard]] host::Reference sha256() const;
  // The ContainedFileIdentity for it.
  [[nodiscard]] host::Reference record() const;

 private:
  system::FileStat stat_;
  host::Reference sha256_;
  host::Reference record_;
};

// ContainedFileIdentity(**fields) by what the name is bound to, from a stat key and a digest.
[[nodiscard]] host::Reference make_file_identity(PyObject* stat_key, const host::Reference& sha256);

// Takes up ContainedFileIdentity and its stat key as the load has made them; once, at its end.
void record_own_file_identity();
// Whether they are still what is bound: then a record can be made after the proofs as well as
// before them.
[[nodiscard]] bool has_own_file_identity();

// The property `stat_key` of the record.
extern const host::Operation kFileIdentityStatKey;

}  // namespace client_manifest::accepted
