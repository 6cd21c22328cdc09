// The lock is given up once for a whole phase, taken back for what needs it, and never twice.
#include "host/interpreter_lock.h"

#include <gtest/gtest.h>

#include <csignal>
#include <thread>

#include "host/interpreter.h"
#include "system/phase.h"

namespace client_manifest::native_tests {
namespace {

using host::LockReleased;

bool holds_lock() { return PyGILState_Check() == 1; }

TEST(InterpreterLockTest, AScopeGivesTheLockUpAndTakesItBack) {
  EXPECT_TRUE(holds_lock());
  EXPECT_FALSE(LockReleased::here());
  {
    const LockReleased released;
    EXPECT_FALSE(holds_lock());
    EXPECT_TRUE(LockReleased::here());
  }
  EXPECT_TRUE(holds_lock());
  EXPECT_FALSE(LockReleased::here());
}

TEST(InterpreterLockTest, OnlyTheOutermostPhaseGivesTheLockUp) {
  const int found = system::phase([] {
    EXPECT_FALSE(holds_lock());
    const int inner = system::phase([] {
      EXPECT_FALSE(holds_lock());
      return 3;
    });
    EXPECT_FALSE(holds_lock()) << "the end of the inner phase took the lock back";
    EXPECT_TRUE(LockReleased::here());
    return inner + 1;
  });
  EXPECT_EQ(found, 4);
  EXPECT_TRUE(holds_lock());
}

TEST(InterpreterLockTest, WhatThreadsHaveGivenUpIsTheirOwn) {
  bool other_had_given_up = true;
  bool other_held_lock = false;
  const auto take_the_lock = [&] {
    other_had_given_up = LockReleased::here();
    const PyGILState_STATE state = PyGILState_Ensure();
    other_held_lock = holds_lock();
    PyGILState_Release(state);
  };
  system::phase([&] { std::thread(take_the_lock).join(); });
  EXPECT_FALSE(other_had_given_up);
  EXPECT_TRUE(other_held_lock);
}

TEST(InterpreterLockTest, AFailureTravelsAsItIsUntilTheOutermostPhaseEnds) {
  bool met_inside = false;
  try {
    system::phase([&] {
      try {
        system::phase([]() -> int { throw system::Failure(ENOENT, "name"); });
      } catch (const system::Failure& failure) {
        met_inside = failure.is_missing() && !holds_lock();
        throw;
      }
    });
    FAIL() << "the failure was lost";
  } catch (const host::Error& error) {
    EXPECT_TRUE(holds_lock());
    EXPECT_EQ(shown(error.exception()), "FileNotFoundError(2, 'No such file or directory')");
    EXPECT_EQ(text_of(error.exception()), "[Errno 2] No such file or directory: 'name'");
  }
  EXPECT_TRUE(met_inside);
}

class SignalTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(scope_.runs(R"(
import signal
calls = []

def handler(number, frame):
    calls.append(number)

def raising(number, frame):
    raise LookupError("from the handler")

before = signal.signal(signal.SIGUSR1, handler)
)"));
  }
  void TearDown() override { ASSERT_TRUE(scope_.runs("signal.signal(signal.SIGUSR1, before)")); }

  Scope scope_;
};

TEST_F(SignalTest, HandlersRunWithTheLockHeld) {
  ASSERT_EQ(std::raise(SIGUSR1), 0);
  host::run_signal_handlers();
  EXPECT_TRUE(scope_.runs("assert calls == [signal.SIGUSR1]"));
}

TEST_F(SignalTest, HandlersRunInAPhaseThatGoesOnWithoutTheLock) {
  system::phase([] {
    ASSERT_EQ(std::raise(SIGUSR1), 0);
    host::run_signal_handlers();
    EXPECT_FALSE(holds_lock());
    EXPECT_TRUE(LockReleased::here());
  });
  EXPECT_TRUE(scope_.runs("assert calls == [signal.SIGUSR1]"));
}

TEST_F(SignalTest, WhatAHandlerRaisesLeavesThePhase) {
  ASSERT_TRUE(scope_.runs("signal.signal(signal.SIGUSR1, raising)"));
  bool went_on = false;
  try {
    system::phase([&] {
      ASSERT_EQ(std::raise(SIGUSR1), 0);
      try {
        host::run_signal_handlers();
      } catch (host::Error& raised) {
        EXPECT_FALSE(holds_lock());
        EXPECT_TRUE(LockReleased::here());
        throw system::Failure(std::move(raised));
      }
      went_on = true;
    });
  } catch (const host::Error& error) {
    EXPECT_EQ(shown(error.exception()), "LookupError('from the handler')");
  }
  EXPECT_FALSE(went_on);
  EXPECT_TRUE(holds_lock());
}

}  // namespace
}  // namespace client_manifest::native_tests
