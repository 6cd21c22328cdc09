// Looks at files come out as the host's own stat functions give them.
#include "system/file_stat.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cstdint>

#include "host/call.h"
#include "host/interpreter.h"
#include "host/value.h"
#include "system/calls.h"

namespace client_manifest::native_tests {
namespace {

using host::Arguments;
using host::Reference;
using system::FileStat;
using system::Timestamp;

// `{seconds} * 10**9 + {nanoseconds}` by the host's own integers.
Reference exact(const Timestamp& time) {
  Scope scope;
  scope.set("seconds", host::integer(time.seconds));
  scope.set("nanoseconds", host::integer(time.nanoseconds));
  return scope.value("seconds * 10**9 + nanoseconds");
}

TEST(NanosecondsTest, NoTimestampIsTooFarAway) {
  constexpr std::int64_t most = INT64_MAX / 1'000'000'000;
  for (const std::int64_t seconds :
       {std::int64_t{0}, std::int64_t{1}, std::int64_t{-1}, std::int64_t{1'700'000'000},
        std::int64_t{INT32_MAX}, std::int64_t{INT32_MIN}, most - 2, most - 1, most, most + 1,
        -most + 2, -most + 1, -most, -most - 1, -most - 2, std::int64_t{INT64_MAX},
        std::int64_t{INT64_MIN}}) {
    for (const std::int64_t nanoseconds : {0, 1, 499'999'999, 999'999'999}) {
      const Timestamp time{seconds, nanoseconds};
      EXPECT_EQ(shown(system::nanoseconds(time).get()), shown(exact(time).get()));
    }
  }
}

constexpr host::Signature kLook{.name = "look", .parameters = {{{"path"}}}};

Reference look(PyObject* /*module*/, const Arguments& arguments) {
  return system::stat_result(system::stat_at(AT_FDCWD, PyBytes_AsString(arguments[0])));
}

constexpr const char* kComparison = R"(
import os, tempfile

NAMES = [name for name in dir(os.stat_result) if name.startswith("st_")]

def told(stat):
    values = {name: getattr(stat, name) for name in NAMES}
    return type(stat), tuple(stat), values, [type(value) for value in values.values()]

def compare(path):
    found = told(look(os.fsencode(path)))
    assert found == told(os.lstat(path)), (path, found)
)";

class StatResultTest : public testing::Test {
 protected:
  void SetUp() override {
    system::record_stat_result_type();
    scope_.bind<kLook, &look>();
    ASSERT_TRUE(scope_.runs(kComparison));
  }

  Scope scope_;
};

TEST_F(StatResultTest, EveryFieldIsTheHosts) {
  EXPECT_TRUE(scope_.runs(R"(
for path in ("/", "/dev/null", "/dev/zero", "/proc", "/proc/self/exe", "/etc/passwd", os.__file__):
    compare(path)
)"));
}

TEST_F(StatResultTest, TimesFarAwayAreTheHosts) {
  EXPECT_TRUE(scope_.runs(R"(
with tempfile.TemporaryDirectory() as directory:
    path = os.path.join(directory, "file")
    with open(path, "wb") as file:
        file.write(b"bytes")
    for times in [(0, 0), (1, 999_999_999), (-1, -999_999_999), (-10**18, 10**18 + 1),
                  (-2**31 * 10**9, 2**31 * 10**9), (1_700_000_000_123_456_789, 2**33 * 10**9)]:
        os.utime(path, ns=times)
        compare(path)
)"));
}

TEST_F(StatResultTest, NoOwnerIsMinusOne) {
  FileStat stat;
  stat.user = UINT32_MAX;
  stat.group = UINT32_MAX;
  const Reference result = system::stat_result(stat);
  EXPECT_EQ(shown(host::item(result.get(), host::integer(std::int64_t{4}).get()).get()), "-1");
  EXPECT_EQ(shown(host::item(result.get(), host::integer(std::int64_t{5}).get()).get()), "-1");
}

TEST_F(StatResultTest, LargeNumbersKeepTheirSign) {
  FileStat stat;
  stat.inode = UINT64_MAX;
  stat.device = UINT64_MAX;
  stat.size = INT64_MAX;
  scope_.set("stat", system::stat_result(stat));
  EXPECT_TRUE(scope_.runs(R"(
assert (stat.st_ino, stat.st_dev, stat.st_size) == (2**64 - 1, 2**64 - 1, 2**63 - 1)
)"));
}

TEST(FileKeyTest, EachOfTheFiveFieldsTells) {
  const FileStat one;
  EXPECT_TRUE(system::same_key(one, one));
  const auto differs = [&](auto change) {
    FileStat other;
    change(other);
    return !system::same_key(one, other);
  };
  EXPECT_TRUE(differs([](FileStat& stat) { stat.size = 1; }));
  EXPECT_TRUE(differs([](FileStat& stat) { stat.modified.seconds = 1; }));
  EXPECT_TRUE(differs([](FileStat& stat) { stat.modified.nanoseconds = 1; }));
  EXPECT_TRUE(differs([](FileStat& stat) { stat.changed.seconds = 1; }));
  EXPECT_TRUE(differs([](FileStat& stat) { stat.changed.nanoseconds = 1; }));
  EXPECT_TRUE(differs([](FileStat& stat) { stat.device = 1; }));
  EXPECT_TRUE(differs([](FileStat& stat) { stat.inode = 1; }));
  EXPECT_FALSE(differs([](FileStat& stat) { stat.accessed.seconds = 1; }));
  EXPECT_FALSE(differs([](FileStat& stat) { stat.links = 1; }));
  EXPECT_FALSE(differs([](FileStat& stat) { stat.mode = 1; }));
}

TEST(FileKeyTest, AnObjectIsItsDeviceAndInode) {
  const FileStat one;
  FileStat other;
  other.size = 1;
  EXPECT_TRUE(system::same_object(one, other));
  other.inode = 1;
  EXPECT_FALSE(system::same_object(one, other));
  other.inode = 0;
  other.device = 1;
  EXPECT_FALSE(system::same_object(one, other));
}

}  // namespace
}  // namespace client_manifest::native_tests
