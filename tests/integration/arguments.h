#pragma once

#include <diagnostic/reportuuid.h>

#include <istream>
#include <stdexcept>
#include <string>

/** @file The words of a command that a process is told by a test. */
namespace KELP::Test {

/** Takes the next word. Throws when it is missing or no value of the type. */
template <typename T>
T next(std::istream& words) {
  T value{};
  if (!(words >> value)) {
    throw std::invalid_argument("an argument is missing");
  }
  return value;
}

/** The same, of an identifier. */
inline Diagnostic::ReportUuid nextId(std::istream& words) {
  Diagnostic::ReportUuid id;
  if (!id.parse(next<std::string>(words).c_str())) {
    throw std::invalid_argument("not an identifier");
  }
  return id;
}

}  // namespace KELP::Test
