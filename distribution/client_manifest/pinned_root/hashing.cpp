// Memory is one chunk, whatever the size of the file, and the digest is the host's.
#include "pinned_root/hashing.h"

#include <algorithm>
#include <optional>

#include "accepted/digest.h"
#include "accepted/stat_key.h"
#include "documents/relative_path.h"
#include "host/chunk_buffer.h"
#include "host/context_manager.h"
#include "host/message.h"
#include "host/value.h"
#include "pinned_root/chunk_size.h"
#include "pinned_root/direct_route.h"
#include "pinned_root/instance.h"
#include "pinned_root/open_file.h"
#include "system/calls.h"

namespace client_manifest::pinned_root {
namespace {

using accepted::FileIdentity;
using host::Arguments;
using host::Kind;
using host::Operation;
using host::Pass;
using host::raise;
using host::Reference;
using system::FileStat;

void require_chunk_bytes(PyObject* chunk_bytes) {
  if (!host::is_integer(chunk_bytes)) {
    raise(PyExc_TypeError, "hash chunk_bytes must be an integer");
  }
  if (!host::is_above_zero(chunk_bytes)) {
    raise(PyExc_ValueError, "hash chunk_bytes must be positive");
  }
}

// A buffer of one chunk, or of a little more than the file where that is less: the byte more shows
// the end of the file in the same read. A file that was empty and grows is still read in good
// steps.
host::AlignedMemory chunk_for(const FileStat& stat, std::int64_t chunk_bytes) {
  constexpr std::int64_t least = 0x4000;
  const std::int64_t enough = stat.size < chunk_bytes ? stat.size + 1 : chunk_bytes;
  return host::AlignedMemory(
      static_cast<std::size_t>(std::min(std::max(enough, least), chunk_bytes)));
}

// What the direct route has measured so far.
struct Measurement {
  FileStat source_stat;
  FileStat final_stat;
  ByteCount actual_size;
};

// Opens the file and fills a first chunk, in one phase.
host::AlignedMemory first_chunk(DirectRoute& route, std::int64_t chunk_bytes, Measurement& measured,
                                std::size_t& filled) {
  return in_words([&] {
    route.open();
    measured.source_stat = route.look();
    if (!measured.source_stat.is_regular()) throw not_a_regular_file(route.subject());
    system::rewind(route.file());
    host::AlignedMemory memory = chunk_for(measured.source_stat, chunk_bytes);
    filled = system::read_full(route.file(), memory.bytes());
    return memory;
  });
}

// Feeds the file to `digest`, chunk by chunk. A chunk that was not filled is the last one.
void consume(DirectRoute& route, std::int64_t chunk_bytes, const accepted::Digest& digest,
             Measurement& measured) {
  std::size_t filled = 0;
  host::ChunkBuffer chunk(first_chunk(route, chunk_bytes, measured, filled));
  for (;;) {
    host::run_signal_handlers();
    if (filled > 0) digest.update(chunk.showing(filled));
    measured.actual_size.add(filled);
    if (filled < chunk.memory().size()) return;
    filled = system::read_full(route.file(), chunk.memory());
  }
}

// All the proofs and the close, in one phase.
void prove(DirectRoute& route, Measurement& measured) {
  in_words([&] {
    measured.final_stat = route.look();
    if (!system::same_key(measured.source_stat, measured.final_stat) ||
        !measured.actual_size.is(measured.final_stat.size)) {
      throw changed_while_hashed(route.subject());
    }
    const FileStat file_stat = route.look();
    if (!system::same_key(file_stat, measured.final_stat)) {
      throw changed_while_open(route.subject());
    }
    route.prove_path(file_stat);
    route.prove_root();
    route.close();
  });
}

FileIdentity hash_directly(DirectRoute& route, std::int64_t chunk_bytes) {
  const accepted::Digest digest;
  Measurement measured;
  host::guaranteed(
      [&] {
        consume(route, chunk_bytes, digest, measured);
        prove(route, measured);
      },
      [&] { route.close(); });
  return {measured.final_stat, digest.hexdigest()};
}

// The size of a chunk as a plain number. A larger one than is of any use on the direct route, or
// one that has operators of its own, is left to the file that is asked for it.
std::optional<std::int64_t> plain_chunk_bytes(PyObject* chunk_bytes) {
  constexpr long most = 0x4000000;
  if (PyLong_CheckExact(chunk_bytes) == 0) return std::nullopt;
  int overflow = 0;
  const long value = PyLong_AsLongAndOverflow(chunk_bytes, &overflow);
  if (overflow != 0 || value > most) return std::nullopt;
  return value;
}

}  // namespace

FileIdentity hash_regular_file(PyObject* self, PyObject* relative_path, PyObject* label,
                               PyObject* given_chunk_bytes) {
  const Reference chunk_bytes = given_chunk_bytes != nullptr ? Reference::acquire(given_chunk_bytes)
                                                             : host::integer(kChunkBytes);
  require_chunk_bytes(chunk_bytes.get());
  const Reference safe_path = documents::bound::validate_manifest_relative_path(relative_path);
  const Subject subject{.label = label, .path = safe_path.get()};

  if (const auto plain = plain_chunk_bytes(chunk_bytes.get())) {
    if (auto route = DirectRoute::find(self, subject, Purpose::hash)) {
      return hash_directly(*route, *plain);
    }
  }
  const Instance root = through(self);
  const Reference opened = root.open_regular_file_for_read(subject.path, subject.label);
  return FileIdentity(host::with(opened.get(), [&](PyObject* file) {
    return root.hash_open_regular_file(file, subject.path, subject.label, chunk_bytes.get());
  }));
}

namespace {

constexpr host::Signature kHashSignature{
    .name = "hash_regular_file",
    .kind = Kind::method,
    .parameters = {{{"relative_path"}, {"label", Pass::by_keyword}, kChunkBytesParameter}},
    .documentation = "Hash one stable regular-file identity through a bounded stream.",
};

Reference hash_body(PyObject* self, const Arguments& arguments) {
  return hash_regular_file(self, arguments[0], arguments[1], arguments[2]).record();
}

constexpr host::Signature kHashOpenSignature{
    .name = "hash_open_regular_file",
    .kind = Kind::method,
    .parameters =
        {{{"file"}, {"relative_path"}, {"label", Pass::by_keyword}, kChunkBytesParameter}},
    .documentation = "Hash an already-open contained file without reopening its path.",
};

Reference hash_open_regular_file(PyObject* self, const Arguments& arguments) {
  PyObject* const file = arguments[0];
  const Reference chunk_bytes = chunk_bytes_or_default(arguments[3]);
  require_chunk_bytes(chunk_bytes.get());
  const Reference safe_path = documents::bound::validate_manifest_relative_path(arguments[1]);
  const Subject subject{.label = arguments[2], .path = safe_path.get()};

  const FileStat source_stat = stat_open_file(file);
  if (!source_stat.is_regular()) throw not_a_regular_file(subject).in_words();
  static_cast<void>(host::call_method(file, names().seek, host::integer(std::int64_t{0})));
  const accepted::Digest digest;
  ByteCount actual_size;
  while (const Reference chunk = read_chunk(file, chunk_bytes.get())) {
    actual_size.add(chunk);
    digest.update(chunk);
  }
  const FileStat final_stat = stat_open_file(file);
  if (accepted::bound::stat_keys_differ(source_stat, final_stat) ||
      !actual_size.is(final_stat.size)) {
    throw changed_while_hashed(subject).in_words();
  }
  const Reference final_key =
      accepted::bound::regular_file_stat_key(system::stat_result(final_stat).get());
  Reference identity = accepted::make_file_identity(final_key.get(), digest.hexdigest());
  through(self).assert_open_regular_file_identity(file, subject.path, subject.label,
                                                  identity.get());
  return identity;
}

constexpr host::Signature kAssertIdentitySignature{
    .name = "assert_open_regular_file_identity",
    .kind = Kind::method,
    .parameters = {{{"file"},
                    {"relative_path"},
                    {"label", Pass::by_keyword},
                    {"identity", Pass::by_keyword}}},
    .documentation = "Recheck one consumed descriptor against its contained path and root.",
};

Reference assert_open_regular_file_identity(PyObject* self, const Arguments& arguments) {
  PyObject* const file = arguments[0];
  const Instance root = through(self);
  const Reference safe_path = documents::bound::validate_manifest_relative_path(arguments[1]);
  const Subject subject{.label = arguments[2], .path = safe_path.get()};

  const Reference file_stat = system::stat_result(stat_open_file(file));
  const Reference key = accepted::bound::regular_file_stat_key(file_stat.get());
  const Reference identity_key = host::attribute(arguments[3], names().stat_key);
  if (host::differ(key.get(), identity_key.get())) throw changed_while_open(subject).in_words();
  root.assert_path_matches_regular_file(subject.path, subject.label, file_stat.get());
  root.assert_root_unchanged();
  return Reference::acquire(Py_None);
}

}  // namespace

constinit const Operation kHashRegularFile = Operation::of<kHashSignature, &hash_body>();
constinit const Operation kHashOpenRegularFile =
    Operation::of<kHashOpenSignature, &hash_open_regular_file>();
constinit const Operation kAssertOpenRegularFileIdentity =
    Operation::of<kAssertIdentitySignature, &assert_open_regular_file_identity>();

}  // namespace client_manifest::pinned_root
