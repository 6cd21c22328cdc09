// Failures meet the same context, cause and replacement as in statements of the host's language.
#include "host/handling.h"

#include <gtest/gtest.h>

#include "host/context_manager.h"
#include "host/interpreter.h"
#include "host/message.h"

namespace client_manifest::native_tests {
namespace {

using host::Arguments;
using host::Error;
using host::Reference;

Reference called(PyObject* callable) { return host::call(Reference::acquire(callable)); }

constexpr host::Signature kGuaranteed{.name = "guaranteed",
                                      .parameters = {{{"work"}, {"cleanup"}}}};

Reference guaranteed(PyObject* /*module*/, const Arguments& arguments) {
  return host::guaranteed([&] { return called(arguments[0]); },
                          [&] { static_cast<void>(called(arguments[1])); });
}

constexpr host::Signature kWithoutResult{.name = "without_result",
                                         .parameters = {{{"work"}, {"cleanup"}}}};

Reference without_result(PyObject* /*module*/, const Arguments& arguments) {
  host::guaranteed([&] { static_cast<void>(called(arguments[0])); },
                   [&] { static_cast<void>(called(arguments[1])); });
  return Reference::acquire(Py_None);
}

constexpr host::Signature kTranslated{.name = "translated", .parameters = {{{"work"}}}};

Reference translated(PyObject* /*module*/, const Arguments& arguments) {
  try {
    return called(arguments[0]);
  } catch (const Error& failure) {
    host::raise_from(failure, PyExc_RuntimeError, "in other words");
  }
}

constexpr host::Signature kReplaced{.name = "replaced", .parameters = {{{"work"}, {"handler"}}}};

Reference replaced(PyObject* /*module*/, const Arguments& arguments) {
  try {
    return called(arguments[0]);
  } catch (const Error& failure) {
    const host::Handling handling(failure);
    return called(arguments[1]);
  }
}

constexpr host::Signature kWithin{.name = "within", .parameters = {{{"manager"}, {"block"}}}};

Reference within(PyObject* /*module*/, const Arguments& arguments) {
  return host::with(arguments[0], [&](PyObject* entered) {
    return host::call(Reference::acquire(arguments[1]), entered);
  });
}

// The host's own statements, the parts that a block runs, and a comparison inside and outside of
// a handler. Each part notes which exception counted as handled when it ran.
constexpr const char* kStatements = R"(
import itertools, sys

class native:
    guaranteed = guaranteed
    without_result = without_result
    translated = translated
    replaced = replaced
    within = within

class host:
    def guaranteed(work, cleanup):
        try:
            return work()
        finally:
            cleanup()
    def without_result(work, cleanup):
        try:
            work()
        finally:
            cleanup()
    def translated(work):
        try:
            return work()
        except BaseException as failure:
            raise RuntimeError("in other words") from failure
    def replaced(work, handler):
        try:
            return work()
        except BaseException:
            return handler()
    def within(manager, block):
        with manager as entered:
            return block(entered)

handled = []

def note():
    handled.append(seen(sys.exc_info()[1]))

def fine(*arguments):
    note()
    return arguments

def failing(kind):
    def fail(*arguments):
        note()
        raise kind("fails")
    return fail

def chained(*arguments):
    note()
    try:
        {}["no such key"]
    except KeyError as cause:
        raise ValueError("chained") from cause

def again(*arguments):
    """Raises what is being handled once more, as a bare raise does."""
    note()
    current = sys.exc_info()[1]
    raise TypeError("nothing to raise") if current is None else current

PARTS = [fine, failing(ValueError), failing(KeyboardInterrupt), chained, again]

def told(function, arguments, inside):
    handled.clear()
    if inside:
        try:
            raise LookupError("outside")
        except LookupError:
            ending = outcome(function, *arguments)
            note()
    else:
        ending = outcome(function, *arguments)
        note()
    return ending, list(handled)

def compare(name, *arguments):
    for inside in (False, True):
        expected = told(getattr(host, name), arguments, inside)
        assert told(getattr(native, name), arguments, inside) == expected, (name, expected)
)";

class HandlingTest : public testing::Test {
 protected:
  void SetUp() override {
    scope_.bind<kGuaranteed, &guaranteed>();
    scope_.bind<kWithoutResult, &without_result>();
    scope_.bind<kTranslated, &translated>();
    scope_.bind<kReplaced, &replaced>();
    scope_.bind<kWithin, &within>();
    ASSERT_TRUE(scope_.runs(kOutcome));
    ASSERT_TRUE(scope_.runs(kStatements));
  }

  Scope scope_;
};

TEST_F(HandlingTest, CleanUpRunsOnEveryExitAndReplacesWhatWasInFlight) {
  EXPECT_TRUE(scope_.runs(R"(
for work, cleanup in itertools.product(PARTS, PARTS):
    compare("guaranteed", work, cleanup)
    compare("without_result", work, cleanup)
)"));
}

TEST_F(HandlingTest, ATranslatedFailureIsChained) {
  EXPECT_TRUE(scope_.runs("for work in PARTS: compare('translated', work)"));
}

TEST_F(HandlingTest, AFailureInAHandlerHasTheHandledOneAsItsContext) {
  EXPECT_TRUE(scope_.runs(R"(
for work, handler in itertools.product(PARTS, PARTS):
    compare("replaced", work, handler)
)"));
}

TEST_F(HandlingTest, StatementsNest) {
  EXPECT_TRUE(scope_.runs(R"(
for work, inner, outer in itertools.product(PARTS, PARTS, PARTS):
    endings = [
        told(made.guaranteed, (lambda: made.replaced(work, inner), outer), True)
        for made in (native, host)
    ]
    assert endings[0] == endings[1], endings
)"));
}

TEST_F(HandlingTest, MemoryThatRunsOutIsTheHostsFailureWhileItIsCleanedUpBehind) {
  int cleaned = 0;
  try {
    host::guaranteed([]() -> int { throw std::bad_alloc(); }, [&] { ++cleaned; });
    FAIL() << "the failure was lost";
  } catch (const Error& error) {
    EXPECT_EQ(shown(error.exception()), "MemoryError()");
  }
  EXPECT_EQ(cleaned, 1);
}

TEST_F(HandlingTest, AContextManagerIsEnteredAndLeftAsTheHostDoesIt) {
  EXPECT_TRUE(scope_.runs(R"(
def manager(enter, leave):
    class Manager:
        def __enter__(self):
            return enter()
        def __exit__(self, *about):
            handled.append([about[0], seen(about[1]), type(about[2])])
            return leave()
    return Manager()

def gives(value):
    def give(*arguments):
        note()
        return value
    return give

for enter, leave, block in itertools.product(
    [fine, failing(ValueError)], [*PARTS, gives(True), gives([])], PARTS
):
    compare("within", manager(enter, leave), block)
)"));
}

TEST_F(HandlingTest, WhatIsNoContextManagerIsRefusedInTheHostsWords) {
  EXPECT_TRUE(scope_.runs(R"(
class OnlyEnter:
    def __enter__(self):
        note()

class OnlyExit:
    def __exit__(self, *about):
        note()

class OnInstance:
    def __init__(self):
        self.__enter__ = self.__exit__ = note

for manager in (None, OnlyEnter(), OnlyExit(), OnInstance()):
    compare("within", manager, fine)
)"));
}

}  // namespace
}  // namespace client_manifest::native_tests
