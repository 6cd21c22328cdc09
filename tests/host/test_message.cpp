// Messages are built as the host's f-strings build theirs.
#include "host/message.h"

#include <gtest/gtest.h>

#include "host/interpreter.h"

namespace client_manifest::native_tests {
namespace {

using host::Arguments;
using host::Reference;

constexpr host::Signature kMessage{.name = "message", .parameters = {{{"one"}, {"other"}}}};

Reference message(PyObject* /*module*/, const Arguments& arguments) {
  return host::text("a \"", arguments[0], "\" is no ", Reference::acquire(arguments[1]), "; {}%s");
}

constexpr host::Signature kRaised{.name = "raised", .parameters = {{{"kind"}, {"value"}}}};

Reference raised(PyObject* /*module*/, const Arguments& arguments) {
  host::raise(arguments[0], "of ", arguments[1]);
}

class MessageTest : public testing::Test {
 protected:
  void SetUp() override {
    scope_.bind<kMessage, &message>();
    scope_.bind<kRaised, &raised>();
    ASSERT_TRUE(scope_.runs(kOutcome));
  }

  Scope scope_;
};

TEST_F(MessageTest, ValuesComeOutAsInAnFString) {
  EXPECT_TRUE(scope_.runs(R"(
class Text(str):
    def __format__(self, template):
        return f"formatted with {template!r}"

class Formatting:
    def __init__(self, result):
        self.result = result
    def __format__(self, template):
        if isinstance(self.result, BaseException):
            raise self.result
        return self.result

class Plain:
    def __str__(self):
        return "plain"

values = [
    "", "words", "{one} {0} {", "%s %d %", "\ud800", "\0", "é\U0001f600", Text("words"), None,
    True, 10**50, -0.0, float("nan"), b"bytes", [1, "a"], {"a": {}}, (), Plain(), int, Plain,
    Formatting("f"), Formatting(Text("t")), Formatting(5), Formatting(None),
    Formatting(LookupError("no")), Formatting(KeyboardInterrupt()),
]

def expected(one, other):
    return f'a "{one}" is no {other}; {{}}%s'

for one in values:
    for other in values:
        found = outcome(message, one, other)
        assert found == outcome(expected, one, other), (one, other, found)
        assert found[0] == "failure" or type(found[1]) is str
)"));
}

TEST_F(MessageTest, EachValueIsFormattedOnceInOrder) {
  EXPECT_TRUE(scope_.runs(R"(
order = []

class Noting:
    def __init__(self, name):
        self.name = name
    def __format__(self, template):
        order.append(self.name)
        return self.name

message(Noting("one"), Noting("other"))
assert order == ["one", "other"], order
)"));
}

TEST_F(MessageTest, NothingIsAnEmptyText) {
  EXPECT_EQ(text_of(host::concatenated({}).get()), "");
  EXPECT_EQ(text_of(host::text("").get()), "");
}

TEST_F(MessageTest, AFailureIsRaisedWithTheText) {
  EXPECT_TRUE(scope_.runs(R"(
def expected(kind, value):
    raise kind(f"of {value}")

class Refusing(Exception):
    def __init__(self, text):
        raise KeyError(text)

for kind in (ValueError, FileNotFoundError, UnicodeDecodeError, Refusing):
    for value in ("a", ("a", 1)):
        assert outcome(raised, kind, value) == outcome(expected, kind, value), (kind, value)
)"));
}

}  // namespace
}  // namespace client_manifest::native_tests
