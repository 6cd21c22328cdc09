// A host exception goes through C++ and comes out whole.
#include "host/error.h"

#include <gtest/gtest.h>

#include "host/handling.h"
#include "host/interpreter.h"

namespace client_manifest::native_tests {
namespace {

using host::Error;
using host::Reference;
using host::take;

Reference attribute(const Error& error, const char* name) {
  return take(PyObject_GetAttrString(error.exception(), name));
}

Error fetched(const char* statement) {
  Scope scope;
  const Reference compiled = take(Py_CompileString(statement, "test", Py_file_input));
  const Reference names = take(PyDict_New());
  PyObject* const none = PyEval_EvalCode(compiled.get(), names.get(), names.get());
  EXPECT_EQ(none, nullptr);
  return Error::fetch();
}

TEST(ErrorTest, FetchTakesUpWhatIsPending) {
  PyErr_SetString(PyExc_FileNotFoundError, "words");
  const Error error = Error::fetch();
  EXPECT_EQ(PyErr_Occurred(), nullptr);
  EXPECT_EQ(text_of(error.exception()), "words");
  EXPECT_EQ(reinterpret_cast<PyObject*>(Py_TYPE(error.exception())), PyExc_FileNotFoundError);
}

TEST(ErrorTest, FetchMakesAnInstanceOfWhatIsPending) {
  PyErr_SetObject(PyExc_KeyError, Py_True);
  EXPECT_EQ(shown(Error::fetch().exception()), "KeyError(True)");
  PyErr_SetNone(PyExc_ValueError);
  EXPECT_EQ(shown(Error::fetch().exception()), "ValueError()");
}

TEST(ErrorTest, NothingPendingIsASystemError) {
  const Error error = Error::fetch();
  EXPECT_EQ(shown(error.exception()), "SystemError('a host call failed without an exception')");
}

TEST(ErrorTest, MatchesItsClassAndTheBasesOfIt) {
  PyErr_SetString(PyExc_FileNotFoundError, "words");
  const Error error = Error::fetch();
  EXPECT_TRUE(error.matches(PyExc_FileNotFoundError));
  EXPECT_TRUE(error.matches(PyExc_OSError));
  EXPECT_TRUE(error.matches(PyExc_Exception));
  EXPECT_FALSE(error.matches(PyExc_FileExistsError));
  EXPECT_FALSE(error.matches(PyExc_ValueError));
  const Reference either = take(PyTuple_Pack(2, PyExc_ValueError, PyExc_OSError));
  EXPECT_TRUE(error.matches(either.get()));
}

TEST(ErrorTest, AnArgumentIsPassedAsItIs) {
  const Reference pair = take(PyTuple_Pack(2, Py_None, Py_True));
  const Error error(PyExc_ValueError, pair);
  EXPECT_EQ(shown(error.exception()), "ValueError((None, True))");
  EXPECT_EQ(attribute(error, "__cause__").get(), Py_None);
  EXPECT_EQ(attribute(error, "__context__").get(), Py_None);
  EXPECT_EQ(attribute(error, "__suppress_context__").get(), Py_False);
}

TEST(ErrorTest, AClassThatFailsToMakeOneIsTheFailure) {
  try {
    throw Error(PyExc_UnicodeDecodeError, Reference::acquire(Py_None));
  } catch (const Error& error) {
    EXPECT_TRUE(error.matches(PyExc_TypeError));
    EXPECT_EQ(PyErr_Occurred(), nullptr);
  }
}

TEST(ErrorTest, TheTracebackGoesThrough) {
  Error error = fetched("raise ValueError('words')");
  const Reference traceback = attribute(error, "__traceback__");
  EXPECT_NE(traceback.get(), Py_None);
  std::move(error).restore();
  PyObject* kind = nullptr;
  PyObject* value = nullptr;
  PyObject* restored = nullptr;
  PyErr_Fetch(&kind, &value, &restored);
  const Reference owned_kind = Reference::steal(kind);
  const Reference owned_value = Reference::steal(value);
  const Reference owned_traceback = Reference::steal(restored);
  EXPECT_EQ(restored, traceback.get());
  EXPECT_EQ(kind, PyExc_ValueError);
  EXPECT_EQ(text_of(value), "words");
}

TEST(ErrorTest, RestoreMakesTheSameExceptionPending) {
  Error error(PyExc_ValueError, Reference::acquire(Py_None));
  PyObject* const exception = error.exception();
  std::move(error).restore();
  EXPECT_NE(PyErr_ExceptionMatches(PyExc_ValueError), 0);
  EXPECT_EQ(Error::fetch().exception(), exception);
}

TEST(ErrorTest, FromChainsAsRaiseFromDoes) {
  const Error cause(PyExc_OSError, Reference::acquire(Py_None));
  const host::Handling handling(cause);
  const Error error = Error(PyExc_ValueError, Reference::acquire(Py_None)).from(cause);
  EXPECT_EQ(attribute(error, "__cause__").get(), cause.exception());
  EXPECT_EQ(attribute(error, "__context__").get(), cause.exception());
  EXPECT_EQ(attribute(error, "__suppress_context__").get(), Py_True);
}

TEST(ErrorTest, AnOldChainGoesThrough) {
  const Error error = fetched(
      "try:\n"
      "    {}[1]\n"
      "except KeyError as cause:\n"
      "    raise ValueError from cause\n");
  EXPECT_EQ(shown(attribute(error, "__cause__").get()), "KeyError(1)");
}

TEST(ErrorTest, TakeOwnsOrThrows) {
  PyObject* const object = PyList_New(0);
  EXPECT_EQ(take(Py_NewRef(object)).get(), object);
  EXPECT_EQ(Py_REFCNT(object), 1);
  Py_DECREF(object);
  PyErr_SetString(PyExc_ValueError, "words");
  EXPECT_THROW(static_cast<void>(take(nullptr)), Error);
  EXPECT_EQ(PyErr_Occurred(), nullptr);
}

TEST(ErrorTest, CheckGivesTheAnswerOrThrows) {
  EXPECT_EQ(host::check(0), 0);
  EXPECT_EQ(host::check(7), 7);
  PyErr_SetString(PyExc_ValueError, "words");
  EXPECT_THROW(host::check(-1), Error);
  EXPECT_EQ(PyErr_Occurred(), nullptr);
}

TEST(ErrorTest, NothingIsHeldOnceItIsGone) {
  Reference exception;
  {
    PyErr_SetString(PyExc_ValueError, "words");
    Error error = Error::fetch();
    exception = Reference::acquire(error.exception());
    const Error moved(std::move(error));
    EXPECT_EQ(moved.exception(), exception.get());
  }
  EXPECT_EQ(Py_REFCNT(exception.get()), 1);
}

}  // namespace
}  // namespace client_manifest::native_tests
