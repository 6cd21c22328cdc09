// A descriptor is closed exactly once, whatever happens to its owner.
#include "system/owned_descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "host/interpreter.h"

namespace client_manifest::native_tests {
namespace {

using system::OwnedDescriptor;

bool is_open(int number) { return ::fcntl(number, F_GETFD) >= 0; }

int opened() {
  const int number = ::open("/", O_RDONLY | O_CLOEXEC | O_DIRECTORY);
  EXPECT_GE(number, 0);
  return number;
}

TEST(OwnedDescriptorTest, AnEmptyOneOwnsNothing) {
  OwnedDescriptor empty;
  EXPECT_FALSE(empty);
  EXPECT_LT(empty.get(), 0);
  EXPECT_NO_THROW(empty.close());
}

TEST(OwnedDescriptorTest, ZeroIsADescriptorToo) {
  OwnedDescriptor zero(0);
  EXPECT_TRUE(zero);
  EXPECT_EQ(zero.release(), 0);
}

TEST(OwnedDescriptorTest, TheEndOfItsScopeClosesIt) {
  const int number = opened();
  {
    const OwnedDescriptor owned(number);
    EXPECT_EQ(owned.get(), number);
    EXPECT_TRUE(is_open(number));
  }
  EXPECT_FALSE(is_open(number));
}

TEST(OwnedDescriptorTest, ReleaseHandsItOn) {
  const int number = opened();
  {
    OwnedDescriptor owned(number);
    EXPECT_EQ(owned.release(), number);
    EXPECT_FALSE(owned);
  }
  EXPECT_TRUE(is_open(number));
  ::close(number);
}

TEST(OwnedDescriptorTest, AMoveLeavesNothingBehind) {
  const int number = opened();
  {
    OwnedDescriptor from(number);
    const OwnedDescriptor into(std::move(from));
    EXPECT_FALSE(from);  // NOLINT: what a move leaves is part of the contract
    EXPECT_EQ(into.get(), number);
    EXPECT_TRUE(is_open(number));
  }
  EXPECT_FALSE(is_open(number));
}

TEST(OwnedDescriptorTest, AMoveOntoAnotherClosesThat) {
  const int first = opened();
  const int second = opened();
  OwnedDescriptor into(first);
  OwnedDescriptor from(second);
  into = std::move(from);
  EXPECT_FALSE(is_open(first));
  EXPECT_TRUE(is_open(second));
  EXPECT_EQ(into.get(), second);
  EXPECT_FALSE(from);  // NOLINT: as above
}

TEST(OwnedDescriptorTest, AMoveOntoItselfKeepsIt) {
  const int number = opened();
  OwnedDescriptor owned(number);
  OwnedDescriptor& same = owned;
  owned = std::move(same);
  EXPECT_EQ(owned.get(), number);
  EXPECT_TRUE(is_open(number));
}

TEST(OwnedDescriptorTest, ClosingTwiceClosesOnce) {
  const int number = opened();
  OwnedDescriptor owned(number);
  owned.close();
  EXPECT_FALSE(owned);
  const int reused = opened();
  ASSERT_EQ(reused, number) << "the kernel gives the lowest free number";
  owned.close();
  EXPECT_TRUE(is_open(reused));
  ::close(reused);
}

TEST(OwnedDescriptorTest, AFailingCloseGivesTheNumberBack) {
  const int number = opened();
  {
    OwnedDescriptor owned(number);
    ::close(number);
    try {
      owned.close();
      ADD_FAILURE() << "the failure was lost";
    } catch (const host::Error& error) {
      EXPECT_EQ(shown(error.exception()), "OSError(9, 'Bad file descriptor')");
    }
    EXPECT_FALSE(owned);
    ASSERT_EQ(opened(), number);
  }
  EXPECT_TRUE(is_open(number));
  ::close(number);
}

}  // namespace
}  // namespace client_manifest::native_tests
