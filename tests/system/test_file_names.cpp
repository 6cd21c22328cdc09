// Segments reach the system as the host would encode them, and a refused one fails where it stands.
#include "system/file_names.h"

#include <gtest/gtest.h>

#include "host/call.h"
#include "host/interpreter.h"

namespace client_manifest::native_tests {
namespace {

using host::Arguments;
using host::Reference;
using host::take;
using system::FileNames;

// The bytes of all names, the failure of the first refused one behind them.
Reference listed(const FileNames& names) {
  Reference list = take(PyList_New(0));
  try {
    for (std::size_t i = 0; i < names.size(); ++i) {
      host::check(PyList_Append(list.get(), take(PyBytes_FromString(names.at(i))).get()));
    }
  } catch (const host::Error& error) {
    host::check(PyList_Append(list.get(), error.exception()));
  }
  return list;
}

constexpr host::Signature kSplit{.name = "split", .parameters = {{{"path"}}}};

Reference split(PyObject* /*module*/, const Arguments& arguments) {
  return listed(FileNames::split(arguments[0]));
}

constexpr host::Signature kOf{.name = "of", .parameters = {{{"components"}, {"first"}}}};

Reference of(PyObject* /*module*/, const Arguments& arguments) {
  return listed(FileNames::of(arguments[0], PyLong_AsSsize_t(arguments[1])));
}

constexpr const char* kExpectation = R"(
import itertools, os

# Python's own refusal of a name, as os.open would raise it.
def encoded(name):
    try:
        return os.fsencode(name) if "\0" not in name else embedded_nul()
    except Exception as error:
        return error

def embedded_nul():
    raise ValueError("embedded null byte")

def expected(names):
    found = []
    for name in names:
        found.append(encoded(name))
        if isinstance(found[-1], Exception):
            break
    return found

def same(found, wanted):
    return list(map(comparable, found)) == list(map(comparable, wanted))

def comparable(entry):
    return (type(entry), entry.args) if isinstance(entry, Exception) else entry

class Text(str):
    def split(self, *arguments):
        raise AssertionError("not to be asked")

SEGMENTS = ["a", "", "..", "é", "\U0001f600", "\udcff", "\ud800", "a\0b", "a b\n", "n" * 300]
)";

class FileNamesTest : public testing::Test {
 protected:
  void SetUp() override {
    scope_.bind<kSplit, &split>();
    scope_.bind<kOf, &of>();
    ASSERT_TRUE(scope_.runs(kExpectation));
  }

  [[nodiscard]] FileNames names_of(const char* expression) {
    return FileNames::of(scope_.value(expression).get());
  }

  Scope scope_;
};

TEST_F(FileNamesTest, APathIsSplitAtSlashes) {
  EXPECT_TRUE(scope_.runs(R"(
for count in range(1, 4):
    for names in itertools.product(SEGMENTS, repeat=count):
        for kind in (str, Text):
            path = kind("/".join(names))
            assert same(split(path), expected(names)), (path, split(path))
)"));
}

TEST_F(FileNamesTest, ATupleIsTakenFromThePlaceGiven) {
  EXPECT_TRUE(scope_.runs(R"(
for names in itertools.product(SEGMENTS, repeat=3):
    for first in range(5):
        assert same(of(names, first), expected(names[first:])), (names, first)
)"));
}

TEST_F(FileNamesTest, WhatIsNoTextGoesThroughTheHostsConverter) {
  EXPECT_TRUE(scope_.runs(R"(
from pathlib import PurePosixPath

assert of((b"bytes\xff", PurePosixPath("a/b")), 0) == [b"bytes\xff", b"a/b"]
for refused in (1, None, ["a"]):
    found = of(("a", refused, "b"), 0)
    assert found[0] == b"a" and type(found[1]) is TypeError and len(found) == 2, found
)"));
}

TEST_F(FileNamesTest, EveryNameCountsThoughOneIsRefused) {
  const FileNames names = names_of(R"(("a", "\ud800", "b", "\ud801"))");
  EXPECT_EQ(names.size(), 4U);
  EXPECT_STREQ(names.at(0), "a");
  EXPECT_THROW(static_cast<void>(names.at(1)), host::Error);
}

TEST_F(FileNamesTest, NamesBehindARefusedOneAreNotReached) {
  EXPECT_THROW(static_cast<void>(names_of(R"(("a", "\ud800", "b"))").last()), host::Error);
}

TEST_F(FileNamesTest, LastIsTheLast) {
  EXPECT_STREQ(names_of(R"(("a", "b"))").last(), "b");
  EXPECT_STREQ(FileNames::split(scope_.value("'a/b/'").get()).last(), "");
}

TEST_F(FileNamesTest, OneIsNotSplit) {
  const FileNames names = FileNames::one(scope_.value("'a/b'").get());
  EXPECT_EQ(names.size(), 1U);
  EXPECT_STREQ(names.at(0), "a/b");
}

TEST_F(FileNamesTest, NothingHasNoNames) { EXPECT_EQ(names_of("()").size(), 0U); }

}  // namespace
}  // namespace client_manifest::native_tests
