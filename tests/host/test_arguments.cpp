// A call is taken or refused as the host takes or refuses it for a function of its own, in the
// same words: both are given every shape of call.
#include <gtest/gtest.h>

#include "host/call.h"
#include "host/interpreter.h"

namespace client_manifest::native_tests {
namespace {

using host::Arguments;
using host::Pass;
using host::Reference;
using host::Signature;
using host::take;

// What the body was given, with a mark for what was left at its default.
template <const Signature& signature>
Reference given(PyObject* /*module*/, const Arguments& arguments) {
  const Reference list = take(PyList_New(0));
  for (std::size_t i = 0; i < signature.count(); ++i) {
    PyObject* const value = arguments[i] != nullptr ? arguments[i] : Py_Ellipsis;
    host::check(PyList_Append(list.get(), value));
  }
  return take(PyList_AsTuple(list.get()));
}

constexpr const char* kDefault = "...";
constexpr Signature kNone{.name = "none"};
constexpr Signature kOne{.name = "one", .parameters = {{{"a"}}}};
constexpr Signature kOptional{.name = "optional", .parameters = {{{"a", Pass::anyhow, kDefault}}}};
constexpr Signature kTwo{.name = "two", .parameters = {{{"a"}, {"b"}}}};
constexpr Signature kSecondOptional{.name = "second_optional",
                                    .parameters = {{{"a"}, {"b", Pass::anyhow, kDefault}}}};
constexpr Signature kThree{.name = "three", .parameters = {{{"a"}, {"b"}, {"c"}}}};
constexpr Signature kKeyword{.name = "keyword", .parameters = {{{"a"}, {"b", Pass::by_keyword}}}};
constexpr Signature kKeywordOptional{.name = "keyword_optional",
                                     .parameters = {{{"a"}, {"b", Pass::by_keyword, kDefault}}}};
constexpr Signature kKeywordAlone{.name = "keyword_alone",
                                  .parameters = {{{"a", Pass::by_keyword}}}};
constexpr Signature kKeywords{
    .name = "keywords",
    .parameters = {
        {{"a"}, {"b", Pass::by_keyword}, {"c", Pass::by_keyword}, {"d", Pass::by_keyword}}}};
constexpr Signature kMixed{.name = "mixed",
                           .parameters = {{{"a"},
                                           {"b", Pass::anyhow, kDefault},
                                           {"c", Pass::by_keyword},
                                           {"d", Pass::by_keyword, kDefault}}}};

constexpr const char* kComparison = R"(
import itertools

def none(): return ()
def one(a): return (a,)
def optional(a=...): return (a,)
def two(a, b): return (a, b)
def second_optional(a, b=...): return (a, b)
def three(a, b, c): return (a, b, c)
def keyword(a, *, b): return (a, b)
def keyword_optional(a, *, b=...): return (a, b)
def keyword_alone(*, a): return (a,)
def keywords(a, *, b, c, d): return (a, b, c, d)
def mixed(a, b=..., *, c, d=...): return (a, b, c, d)

NAMES = ("a", "b", "c", "d", "odd", "\ud800")
SHAPES = [
    (positional, names)
    for positional in range(6)
    for count in range(4)
    for names in itertools.permutations(NAMES, count)
]

def compare(native, host):
    wrong = {}
    for positional, names in SHAPES:
        given = range(positional)
        named = {name: name for name in names}
        expected = outcome(host, *given, **named)
        found = outcome(native, *given, **named)
        if found != expected:
            wrong.setdefault((str(found), str(expected)), (positional, names))
    assert not wrong, "\n".join(f"{shape}: {texts[0]}\n  instead of {texts[1]}"
                                for texts, shape in wrong.items())
)";

// Compares the native operation with the function of the same name in the host's language.
template <const Signature& signature>
testing::AssertionResult agrees() {
  Scope scope;
  const testing::AssertionResult ready = scope.runs(kOutcome);
  if (!ready) return ready;
  const testing::AssertionResult defined = scope.runs(kComparison);
  if (!defined) return defined;
  scope.set("host", scope.value(signature.name));
  scope.bind<signature, &given<signature>>();
  scope.set("native", scope.value(signature.name));
  return scope.runs("compare(native, host)");
}

TEST(ArgumentsTest, None) { EXPECT_TRUE(agrees<kNone>()); }
TEST(ArgumentsTest, One) { EXPECT_TRUE(agrees<kOne>()); }
TEST(ArgumentsTest, OneOptional) { EXPECT_TRUE(agrees<kOptional>()); }
TEST(ArgumentsTest, Two) { EXPECT_TRUE(agrees<kTwo>()); }
TEST(ArgumentsTest, TwoAndTheSecondOptional) { EXPECT_TRUE(agrees<kSecondOptional>()); }
TEST(ArgumentsTest, Three) { EXPECT_TRUE(agrees<kThree>()); }
TEST(ArgumentsTest, OneByKeyword) { EXPECT_TRUE(agrees<kKeyword>()); }
TEST(ArgumentsTest, OneByKeywordOptional) { EXPECT_TRUE(agrees<kKeywordOptional>()); }
TEST(ArgumentsTest, OneByKeywordAlone) { EXPECT_TRUE(agrees<kKeywordAlone>()); }
TEST(ArgumentsTest, ManyByKeyword) { EXPECT_TRUE(agrees<kKeywords>()); }
TEST(ArgumentsTest, EveryKind) { EXPECT_TRUE(agrees<kMixed>()); }

// The host can read the signature that the operation declares.
TEST(ArgumentsTest, TheHostReadsTheSignature) {
  Scope scope;
  scope.bind<kMixed, &given<kMixed>>();
  EXPECT_TRUE(scope.runs("import inspect\nread = str(inspect.signature(mixed))"));
  EXPECT_EQ(text_of(scope.value("read").get()), "(a, b=Ellipsis, *, c, d=Ellipsis)");
}

}  // namespace
}  // namespace client_manifest::native_tests
