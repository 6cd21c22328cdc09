// The system calls on Windows, as far as inherited reads and the flush of a staged file need them:
// on descriptors of the C runtime. What is relative to a directory's descriptor is refused.
//
// The runtime must be the interpreter's own, for descriptors mean nothing to another one.
#ifdef _WIN32

#include <io.h>
#include <process.h>
#include <stdlib.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <limits>

#include "host/call.h"
#include "host/message.h"
#include "host/value.h"
#include "system/calls.h"
#include "system/phase.h"

#if defined(__MINGW32__) && !defined(_UCRT)
#error "the interpreter's C runtime is the universal one: build with a compiler for that"
#endif

#ifdef __MINGW32__
// The runtime has it, the compiler's headers need not.
extern "C" __declspec(dllimport) _invalid_parameter_handler
    __cdecl _set_thread_local_invalid_parameter_handler(_invalid_parameter_handler handler);
#endif

namespace client_manifest::system {
namespace {

using host::Reference;
using host::take;

// The kind of a file in the host's st_mode.
constexpr std::uint64_t kKindBits = 0170000;
constexpr std::uint64_t kDirectoryBits = 0040000;
constexpr std::uint64_t kRegularBits = 0100000;

// For as long as it lives, the runtime answers a wrong descriptor with EBADF, and does not end the
// process over it.
class Tolerance {
 public:
  Tolerance() noexcept : former_(_set_thread_local_invalid_parameter_handler(&ignore)) {}
  Tolerance(const Tolerance&) = delete;
  Tolerance(Tolerance&&) = delete;
  Tolerance& operator=(const Tolerance&) = delete;
  Tolerance& operator=(Tolerance&&) = delete;
  ~Tolerance() { _set_thread_local_invalid_parameter_handler(former_); }

 private:
  static void __cdecl ignore(const wchar_t* /*expression*/, const wchar_t* /*function*/,
                             const wchar_t* /*file*/, unsigned /*line*/,
                             std::uintptr_t /*reserved*/) {}

  _invalid_parameter_handler former_;
};

// Makes one call of the runtime's and throws what it left in errno unless it succeeded.
template <class Call>
auto succeeded(Call&& call) -> decltype(call()) {
  const Tolerance tolerance;
  const auto result = call();
  if (result < 0) throw Failure(errno);
  return result;
}

// Does `work`, which needs the interpreter lock, within a phase. What the host raises ends it in
// the shape of a failed call, so that it can travel on without the lock.
template <class Work>
auto phase_with_lock(Work&& work) -> decltype(work()) {
  return phase([&] {
    const host::LockTaken lock;
    try {
      return work();
    } catch (host::Error& raised) {
      throw Failure(std::move(raised));
    }
  });
}

template <class Result>
Result refused() {
  return phase_with_lock([]() -> Result {
    host::raise(PyExc_NotImplementedError,
                "secure descriptor-relative SDK filesystem I/O requires POSIX O_NOFOLLOW support");
  });
}

std::uint64_t unsigned_field(const Reference& found, const char* name) {
  const Reference value = host::attribute(found.get(), name);
  const unsigned long long number = PyLong_AsUnsignedLongLong(value.get());
  if (PyErr_Occurred() != nullptr) throw host::Error::fetch();
  return number;
}

std::int64_t signed_number(const Reference& value) {
  const long long number = PyLong_AsLongLong(value.get());
  if (PyErr_Occurred() != nullptr) throw host::Error::fetch();
  return number;
}

// Not by way of 64 bits: the nanoseconds of a far date need more.
Timestamp time_field(const Reference& found, const char* name) {
  const Reference nanoseconds = host::attribute(found.get(), name);
  const Reference in_a_second = host::integer(std::int64_t{1'000'000'000});
  return {
      .seconds = signed_number(take(PyNumber_FloorDivide(nanoseconds.get(), in_a_second.get()))),
      .nanoseconds = signed_number(take(PyNumber_Remainder(nanoseconds.get(), in_a_second.get())))};
}

FileKind kind_of(std::uint64_t mode) {
  if ((mode & kKindBits) == kRegularBits) return FileKind::regular;
  return (mode & kKindBits) == kDirectoryBits ? FileKind::directory : FileKind::other;
}

FileStat file_stat(const Reference& found) {
  const std::uint64_t mode = unsigned_field(found, "st_mode");
  return FileStat{
      .mode = mode,
      .inode = unsigned_field(found, "st_ino"),
      .device = unsigned_field(found, "st_dev"),
      .links = unsigned_field(found, "st_nlink"),
      .user = unsigned_field(found, "st_uid"),
      .group = unsigned_field(found, "st_gid"),
      .size = signed_number(host::attribute(found.get(), "st_size")),
      .accessed = time_field(found, "st_atime_ns"),
      .modified = time_field(found, "st_mtime_ns"),
      .changed = time_field(found, "st_ctime_ns"),
      .attributes = unsigned_field(found, "st_file_attributes"),
      .reparse_tag = unsigned_field(found, "st_reparse_tag"),
      .kind = kind_of(mode),
  };
}

}  // namespace

OwnedDescriptor open_top_directory() { return refused<OwnedDescriptor>(); }

OwnedDescriptor open_directory_at(int /*directory*/, const char* /*name*/) {
  return refused<OwnedDescriptor>();
}

OwnedDescriptor open_for_read_at(int /*directory*/, const char* /*name*/) {
  return refused<OwnedDescriptor>();
}

OwnedDescriptor open_source_at(int /*directory*/, const char* /*name*/) {
  return refused<OwnedDescriptor>();
}

OwnedDescriptor open_for_update_at(int /*directory*/, const char* /*name*/, bool /*create*/) {
  return refused<OwnedDescriptor>();
}

OwnedDescriptor create_for_write_at(int /*directory*/, const char* /*name*/) {
  return refused<OwnedDescriptor>();
}

OwnedDescriptor duplicate(int /*descriptor*/) { return refused<OwnedDescriptor>(); }

void close(int descriptor) {
  phase([&] { succeeded([&] { return ::_close(descriptor); }); });
}

void OwnedDescriptor::close() {
  if (*this) system::close(release());
}

OwnedDescriptor::~OwnedDescriptor() {
  // Straight to the runtime: this can run where the host is not to be touched any more.
  if (!*this) return;
  const Tolerance tolerance;
  static_cast<void>(::_close(release()));
}

// By the host's own function: identities and times have to be those that the host tells elsewhere.
FileStat stat_descriptor(int descriptor) {
  return phase_with_lock([&] {
    const Reference os = take(PyImport_ImportModule("os"));
    const Reference number = host::integer(std::int64_t{descriptor});
    return file_stat(host::invoke(os.get(), "fstat", {number.get()}));
  });
}

FileStat stat_at(int /*directory*/, const char* /*name*/) { return refused<FileStat>(); }

std::optional<FileStat> stat_if_present_at(int /*directory*/, const char* /*name*/) {
  return refused<std::optional<FileStat>>();
}

bool make_directory_at(int /*directory*/, const char* /*name*/) { return refused<bool>(); }

void remove_directory_at(int /*directory*/, const char* /*name*/) { refused<void>(); }

void unlink_at(int /*directory*/, const char* /*name*/) { refused<void>(); }

void unlink_if_present_at(int /*directory*/, const char* /*name*/) { refused<void>(); }

void rename_at(int /*from*/, const char* /*name*/, int /*to*/, const char* /*new_name*/) {
  refused<void>();
}

void link_at(int /*from*/, const char* /*name*/, int /*to*/, const char* /*new_name*/) {
  refused<void>();
}

void synchronize(int descriptor) {
  phase([&] { succeeded([&] { return ::_commit(descriptor); }); });
}

void rewind(int descriptor) {
  phase([&] { succeeded([&] { return ::_lseeki64(descriptor, 0, SEEK_SET); }); });
}

std::size_t read_full(int descriptor, std::span<std::byte> buffer) {
  // The runtime moves no more than this in one call.
  constexpr std::size_t most = std::numeric_limits<int>::max();
  return phase([&] {
    std::size_t filled = 0;
    while (filled < buffer.size()) {
      const auto wanted = static_cast<unsigned>(std::min(buffer.size() - filled, most));
      const int count =
          succeeded([&] { return ::_read(descriptor, buffer.data() + filled, wanted); });
      if (count == 0) break;
      filled += static_cast<std::size_t>(count);
    }
    return filled;
  });
}

std::size_t write_some(int /*descriptor*/, std::span<const std::byte> /*bytes*/) {
  return refused<std::size_t>();
}

std::int64_t process_id() { return ::_getpid(); }

}  // namespace client_manifest::system

#endif  // _WIN32
