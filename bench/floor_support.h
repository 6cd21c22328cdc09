// Gives the lower bounds what they share: checks that end the program, flags, and the clocks.
#ifndef BENCH_FLOOR_SUPPORT_H_
#define BENCH_FLOOR_SUPPORT_H_

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <time.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace lower_bound {

constexpr int kDirectoryFlags = O_RDONLY | O_CLOEXEC | O_DIRECTORY | O_NOFOLLOW;
constexpr int kLeafFlags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW;
constexpr int kSourceFlags = kLeafFlags | O_NONBLOCK;

[[noreturn]] inline void Fail(std::string_view what) {
  std::fprintf(stderr, "floor: %.*s (%s)\n", static_cast<int>(what.size()), what.data(),
               std::strerror(errno));
  std::exit(1);
}

inline int Checked(int result, std::string_view what) {
  if (result < 0) Fail(what);
  return result;
}

inline void Require(bool condition, std::string_view what) {
  if (!condition) Fail(what);
}

inline int Duplicate(int descriptor) {
  return Checked(fcntl(descriptor, F_DUPFD_CLOEXEC, 0), "dup");
}

inline struct stat StatOf(int descriptor) {
  struct stat found;
  Checked(fstat(descriptor, &found), "fstat");
  return found;
}

inline bool SameObject(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Runs from its making; `Print` tells CPU time and time on the wall as one JSON object.
class Clocks {
 public:
  void Print() const {
    std::printf("{\"cpu\": %.6f, \"wall\": %.6f}\n", CpuSeconds() - cpu_, Now() - wall_);
  }

 private:
  static double Now() {
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
  }

  static double CpuSeconds() {
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
      return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
  }

  double wall_ = Now();
  double cpu_ = CpuSeconds();
};

}  // namespace lower_bound

#endif  // BENCH_FLOOR_SUPPORT_H_
