// A reference is given up exactly once, and last of all.
#include <gtest/gtest.h>

#include "host/interpreter.h"
#include "host/reference.h"

namespace client_manifest::native_tests {
namespace {

using host::Reference;

// A fresh object of which the test holds one reference of its own.
class ReferenceTest : public testing::Test {
 protected:
  [[nodiscard]] Py_ssize_t count() const { return Py_REFCNT(object_); }

  PyObject* const object_ = PyList_New(0);

  void TearDown() override {
    EXPECT_EQ(count(), 1);
    Py_DECREF(object_);
  }
};

TEST_F(ReferenceTest, AnEmptyOneHoldsNothing) {
  Reference empty;
  EXPECT_FALSE(empty);
  EXPECT_EQ(empty.get(), nullptr);
  EXPECT_EQ(empty.release(), nullptr);
  EXPECT_FALSE(Reference::acquire(nullptr));
  EXPECT_FALSE(Reference::steal(nullptr));
}

TEST_F(ReferenceTest, StealTakesOverWhatIsThere) {
  {
    const Reference stolen = Reference::steal(Py_NewRef(object_));
    EXPECT_EQ(stolen.get(), object_);
    EXPECT_EQ(count(), 2);
  }
  EXPECT_EQ(count(), 1);
}

TEST_F(ReferenceTest, AcquireAddsOne) {
  {
    const Reference acquired = Reference::acquire(object_);
    EXPECT_EQ(count(), 2);
  }
  EXPECT_EQ(count(), 1);
}

TEST_F(ReferenceTest, GetLends) {
  const Reference acquired = Reference::acquire(object_);
  EXPECT_EQ(acquired.get(), object_);
  EXPECT_EQ(acquired.get(), object_);
  EXPECT_EQ(count(), 2);
}

TEST_F(ReferenceTest, ReleaseHandsOn) {
  Reference acquired = Reference::acquire(object_);
  PyObject* const handed_on = acquired.release();
  EXPECT_EQ(handed_on, object_);
  EXPECT_FALSE(acquired);
  EXPECT_EQ(count(), 2);
  Py_DECREF(handed_on);
}

TEST_F(ReferenceTest, AMoveLeavesNothingBehind) {
  Reference from = Reference::acquire(object_);
  const Reference into(std::move(from));
  EXPECT_EQ(into.get(), object_);
  EXPECT_EQ(from.get(), nullptr);  // NOLINT: what a move leaves is part of the contract
  EXPECT_EQ(count(), 2);
}

TEST_F(ReferenceTest, AMoveOntoAnotherGivesThatUp) {
  PyObject* const other = PyList_New(0);
  Reference into = Reference::acquire(other);
  Reference from = Reference::acquire(object_);
  into = std::move(from);
  EXPECT_EQ(into.get(), object_);
  EXPECT_EQ(from.get(), nullptr);  // NOLINT: as above
  EXPECT_EQ(count(), 2);
  EXPECT_EQ(Py_REFCNT(other), 1);
  Py_DECREF(other);
}

TEST_F(ReferenceTest, AMoveOntoItselfKeepsTheObject) {
  Reference one = Reference::acquire(object_);
  Reference& same = one;
  one = std::move(same);
  EXPECT_EQ(one.get(), object_);
  EXPECT_EQ(count(), 2);
}

// What a reference showed while its old object was given up.
Reference* watched = nullptr;
PyObject* met = nullptr;

TEST_F(ReferenceTest, TheOldObjectGoesWhenTheNewOneIsInPlace) {
  static int anything = 0;
  Reference reference =
      Reference::steal(PyCapsule_New(&anything, nullptr, [](PyObject*) { met = watched->get(); }));
  watched = &reference;
  reference = Reference::acquire(object_);
  EXPECT_EQ(met, object_);
}

TEST_F(ReferenceTest, TheOldObjectMayReplaceTheNewOne) {
  static int anything = 0;
  Reference reference = Reference::steal(
      PyCapsule_New(&anything, nullptr, [](PyObject*) { *watched = Reference(); }));
  watched = &reference;
  reference = Reference::acquire(object_);
  EXPECT_FALSE(reference);
}

}  // namespace
}  // namespace client_manifest::native_tests
