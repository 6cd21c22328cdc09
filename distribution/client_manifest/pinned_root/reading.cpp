// Nothing that was read counts until it has been proved afterwards: a proof that fails discards
// all of it.
#include "pinned_root/reading.h"

#include <algorithm>
#include <memory>
#include <span>

#include "accepted/stat_key.h"
#include "documents/relative_path.h"
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

using host::Arguments;
using host::Error;
using host::Kind;
using host::Operation;
using host::Pass;
using host::raise_from;
using host::Reference;
using host::take;
using system::FileStat;

// What one read gave: the bytes and the last look at the file they came from.
struct Contents {
  Reference bytes;
  Reference stat;
};

Reference as_tuple(const Contents& contents) {
  return take(PyTuple_Pack(2, contents.bytes.get(), contents.stat.get()));
}

// Reads to the end of the file into memory that grows with it.
class WholeFile {
 public:
  // Makes room for as much as the file seems to hold. One byte more shows its end without growing.
  void expect(std::int64_t size) {
    capacity_ = static_cast<std::size_t>(std::max(size, kLeast)) + 1;
    memory_ = std::make_unique_for_overwrite<std::byte[]>(capacity_);
  }

  void read(int descriptor) {
    for (;;) {
      const std::size_t step = std::min(capacity_ - size_, kStep);
      const std::size_t count = system::read_full(descriptor, {memory_.get() + size_, step});
      size_ += count;
      if (count < step) return;
      host::run_signal_handlers();
      if (size_ == capacity_) grow();
    }
  }

  [[nodiscard]] std::size_t size() const noexcept { return size_; }
  [[nodiscard]] Reference bytes() const {
    return take(PyBytes_FromStringAndSize(reinterpret_cast<const char*>(memory_.get()),
                                          static_cast<Py_ssize_t>(size_)));
  }

 private:
  static constexpr std::int64_t kLeast = 0x4000;
  // How much is read between two looks at pending signals.
  static constexpr std::size_t kStep = 0x1000000;

  void grow() {
    auto larger = std::make_unique_for_overwrite<std::byte[]>(capacity_ * 2);
    std::copy_n(memory_.get(), size_, larger.get());
    memory_ = std::move(larger);
    capacity_ *= 2;
  }

  std::size_t capacity_ = 0;
  std::size_t size_ = 0;
  std::unique_ptr<std::byte[]> memory_;
};

Contents read_directly(DirectRoute& route) {
  WholeFile whole;
  FileStat final_stat;
  route.run([&] {
    route.open();
    const FileStat source_stat = route.look();
    if (!source_stat.is_regular()) throw not_a_regular_file(route.subject());
    whole.expect(source_stat.size);
    whole.read(route.file());
    final_stat = route.look();
    ByteCount actual_size;
    actual_size.add(whole.size());
    if (!system::same_key(source_stat, final_stat) || !actual_size.is(final_stat.size)) {
      throw changed_while_read(route.subject());
    }
    route.prove_path(final_stat);
    route.prove_root();
  });
  return {whole.bytes(), system::stat_result(final_stat)};
}

constexpr host::Signature kReadOpenSignature{
    .name = "_read_open_regular_file_with_stat",
    .kind = Kind::method,
    .parameters = {{{"file"}, {"relative_path"}, {"label", Pass::by_keyword}}},
    .documentation = "Read all bytes and re-prove the consumed descriptor, path, and root.",
};

Reference read_open_regular_file_with_stat(PyObject* self, const Arguments& arguments) {
  PyObject* const file = arguments[0];
  const Subject subject{.label = arguments[2], .path = arguments[1]};
  const Instance root = through(self);

  const FileStat source_stat = stat_open_file(file);
  if (!source_stat.is_regular()) throw not_a_regular_file(subject).in_words();
  const Reference chunks = take(PyList_New(0));
  ByteCount actual_size;
  const Reference chunk_bytes = host::integer(kChunkBytes);
  while (const Reference chunk = read_chunk(file, chunk_bytes.get())) {
    actual_size.add(chunk);
    host::check(PyList_Append(chunks.get(), chunk.get()));
  }
  const FileStat final_stat = stat_open_file(file);
  if (accepted::bound::stat_keys_differ(source_stat, final_stat) ||
      !actual_size.is(final_stat.size)) {
    throw changed_while_read(subject).in_words();
  }
  const Reference stat = system::stat_result(final_stat);
  root.assert_path_matches_regular_file(subject.path, subject.label, stat.get());
  root.assert_root_unchanged();
  const Reference nothing = take(PyBytes_FromStringAndSize(nullptr, 0));
  return as_tuple({take(PyObject_CallMethod(nothing.get(), "join", "O", chunks.get())),
                   Reference::acquire(stat.get())});
}

constexpr host::Signature kReadWithStatSignature{
    .name = "read_regular_file_with_stat",
    .kind = Kind::method,
    .parameters = {{{"relative_path"}, {"label", Pass::by_keyword}}},
};

Reference read_regular_file_with_stat(PyObject* self, const Arguments& arguments) {
  const Reference safe_path = documents::bound::validate_manifest_relative_path(arguments[0]);
  const Subject subject{.label = arguments[1], .path = safe_path.get()};
  try {
    if (auto route = DirectRoute::find(self, subject, Purpose::read)) {
      return as_tuple(read_directly(*route));
    }
    const Instance root = through(self);
    const Reference opened = root.open_regular_file_for_read(subject.path, subject.label);
    return host::with(opened.get(), [&](PyObject* file) {
      return root.read_open_regular_file_with_stat(file, subject.path, subject.label);
    });
  } catch (const Error& error) {
    if (!error.matches(PyExc_FileNotFoundError)) throw;
    raise_from(error, PyExc_FileNotFoundError, subject.label, " is missing: ", subject.path);
  }
}

constexpr host::Signature kReadSignature{
    .name = "read_regular_file",
    .kind = Kind::method,
    .parameters = {{{"relative_path"}, {"label", Pass::by_keyword}}},
};

Reference read_regular_file(PyObject* self, const Arguments& arguments) {
  const Reference read = through(self).read_regular_file_with_stat(arguments[0], arguments[1]);
  return host::unpack_pair(read.get()).first;
}

constexpr host::Signature kReadIfPresentSignature{
    .name = "read_regular_file_if_present",
    .kind = Kind::method,
    .parameters = {{{"relative_path"}, {"label", Pass::by_keyword}}},
};

Reference read_regular_file_if_present(PyObject* self, const Arguments& arguments) {
  try {
    return through(self).read_regular_file(arguments[0], arguments[1]);
  } catch (const Error& error) {
    if (!error.matches(PyExc_FileNotFoundError)) throw;
    return Reference::acquire(Py_None);
  }
}

constexpr host::Signature kStatSignature{
    .name = "stat_regular_file",
    .kind = Kind::method,
    .parameters = {{{"relative_path"}, {"label", Pass::by_keyword}}},
    .documentation = "Return one descriptor/path/root-stable regular-file stat result.",
};

FileStat stat_directly(DirectRoute& route) {
  FileStat file_stat;
  route.run([&] {
    route.open();
    file_stat = route.look();
    route.prove_path(file_stat);
    route.prove_root();
  });
  return file_stat;
}

Reference stat_regular_file(PyObject* self, const Arguments& arguments) {
  const Reference safe_path = documents::bound::validate_manifest_relative_path(arguments[0]);
  const Subject subject{.label = arguments[1], .path = safe_path.get()};
  if (auto route = DirectRoute::find(self, subject, Purpose::stat)) {
    return system::stat_result(stat_directly(*route));
  }
  const Instance root = through(self);
  const Reference opened = root.open_regular_file_for_read(subject.path, subject.label);
  return host::with(opened.get(), [&](PyObject* file) {
    Reference file_stat = system::stat_result(stat_open_file(file));
    root.assert_path_matches_regular_file(subject.path, subject.label, file_stat.get());
    root.assert_root_unchanged();
    return file_stat;
  });
}

}  // namespace

constinit const Operation kReadOpenRegularFileWithStat =
    Operation::of<kReadOpenSignature, &read_open_regular_file_with_stat>();
constinit const Operation kReadRegularFileWithStat =
    Operation::of<kReadWithStatSignature, &read_regular_file_with_stat>();
constinit const Operation kReadRegularFile = Operation::of<kReadSignature, &read_regular_file>();
constinit const Operation kReadRegularFileIfPresent =
    Operation::of<kReadIfPresentSignature, &read_regular_file_if_present>();
constinit const Operation kStatRegularFile = Operation::of<kStatSignature, &stat_regular_file>();

}  // namespace client_manifest::pinned_root
