// Reads the arguments of a call in the host's own way: the same shapes pass, and a wrong shape is
// the host's TypeError in the words that a function written in the host's language would give.
#include <string>

#include "host/message.h"
#include "host/operation.h"

namespace client_manifest::host {
namespace {

bool is_required(const Parameter& parameter) { return parameter.default_text == nullptr; }

std::string counted(std::size_t count, const char* kind) {
  return std::to_string(count) + kind + " argument" + (count == 1 ? "" : "s");
}

[[noreturn]] void raise_too_many(const Signature& signature, std::size_t given,
                                 const std::array<PyObject*, kMostParameters>& values) {
  const std::size_t most = signature.positional();
  std::size_t required = 0;
  for (std::size_t i = 0; i < most; ++i) {
    if (is_required(signature.parameters[i])) ++required;
  }
  std::size_t by_keyword = 0;
  for (std::size_t i = most; i < signature.count(); ++i) {
    if (values[i] != nullptr) ++by_keyword;
  }
  // The host counts a range as more than one, and tells of keywords only if there were any.
  const std::string takes = required == most ? counted(most, " positional")
                                             : "from " + std::to_string(required) + " to " +
                                                   std::to_string(most) + " positional arguments";
  const std::string got = by_keyword == 0 ? std::to_string(given)
                                          : counted(given, " positional") + " (and " +
                                                counted(by_keyword, " keyword-only") + ")";
  const std::string words = "() takes " + takes + " but " + got +
                            (given == 1 && by_keyword == 0 ? " was given" : " were given");
  raise(PyExc_TypeError, signature.name, words.c_str());
}

// The names as the host lists them: 'a', 'a' and 'b', or 'a', 'b', and 'c'.
std::string listed(const std::array<const char*, kMostParameters>& names, std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) {
    if (i > 0) text += count > 2 ? ", " : " ";
    if (i > 0 && i + 1 == count) text += "and ";
    text.append("'").append(names[i]).append("'");
  }
  return text;
}

void require_all(const Signature& signature, Pass pass,
                 const std::array<PyObject*, kMostParameters>& values) {
  std::array<const char*, kMostParameters> missing{};
  std::size_t count = 0;
  for (std::size_t i = 0; i < signature.count(); ++i) {
    const Parameter& parameter = signature.parameters[i];
    if (values[i] == nullptr && parameter.pass == pass && is_required(parameter)) {
      missing[count++] = parameter.name;
    }
  }
  if (count == 0) return;
  const std::string words = "() missing " + std::to_string(count) + " required " +
                            (pass == Pass::anyhow ? "positional" : "keyword-only") + " argument" +
                            (count == 1 ? "" : "s") + ": " + listed(missing, count);
  raise(PyExc_TypeError, signature.name, words.c_str());
}

}  // namespace

Arguments::Arguments(const Signature& signature, PyObject* const* values, std::size_t positional,
                     PyObject* keywords) {
  const std::size_t count = signature.count();
  for (std::size_t i = 0; i < positional && i < signature.positional(); ++i) values_[i] = values[i];

  const Py_ssize_t named = keywords == nullptr ? 0 : PyTuple_GET_SIZE(keywords);
  for (Py_ssize_t k = 0; k < named; ++k) {
    PyObject* const keyword = PyTuple_GET_ITEM(keywords, k);
    std::size_t i = 0;
    while (i < count &&
           PyUnicode_CompareWithASCIIString(keyword, signature.parameters[i].name) != 0) {
      ++i;
    }
    if (i == count) {
      raise(PyExc_TypeError, signature.name, "() got an unexpected keyword argument '", keyword,
            "'");
    }
    if (values_[i] != nullptr) {
      raise(PyExc_TypeError, signature.name, "() got multiple values for argument '", keyword, "'");
    }
    values_[i] = values[positional + static_cast<std::size_t>(k)];
  }
  if (positional > signature.positional()) raise_too_many(signature, positional, values_);
  require_all(signature, Pass::anyhow, values_);
  require_all(signature, Pass::by_keyword, values_);
}

}  // namespace client_manifest::host
