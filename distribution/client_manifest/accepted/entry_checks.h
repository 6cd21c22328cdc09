// Holds a file's bytes, or its measured size and digest, against its manifest entry.
#pragma once

#include "client_manifest.h"

namespace client_manifest::accepted {

// What an entry is held against, and how the failure speaks of it.
struct Subject {
  PyObject* relative_path;
  PyObject* label;
};

void validate_entry_bytes(PyObject* entry, const Subject& subject, PyObject* payload);
void validate_entry_digest(PyObject* entry, const Subject& subject, PyObject* actual_size,
                           PyObject* actual_sha);

extern const host::Operation kValidateEntryBytes;
extern const host::Operation kValidateEntryDigest;

namespace bound {
void validate_entry_bytes(PyObject* entry, const Subject& subject, PyObject* payload);
void validate_entry_digest(PyObject* entry, const Subject& subject, PyObject* actual_size,
                           PyObject* actual_sha);
}  // namespace bound

}  // namespace client_manifest::accepted
