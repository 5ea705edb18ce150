#pragma once

#include "support/logcapture.h"

#include <diagnostic/diagnosticerror.h>
#include <os/expected.h>

#include <gmock/gmock.h>

#include <initializer_list>
#include <ostream>
#include <string>
#include <system_error>
#include <vector>

namespace KELP::OS {

/** Lets a failed assertion show what a result held. */
template <typename T>
void PrintTo(const expected<T, Diagnostic::DiagnosticError>& result, std::ostream* out) {
  if (result.has_value()) {
    *out << "the value " << testing::PrintToString(result.value());
  } else {
    *out << "the error " << result.error().code << " \"" << result.error().message << '"';
  }
}

}  // namespace KELP::OS

namespace KELP::Test {

/** The code of the library's own refusals. */
inline std::error_code noCode() {
  return {0, std::system_category()};
}
/** The code of a failed system call. */
inline std::error_code systemCode(int number) {
  return {number, std::system_category()};
}

MATCHER(Succeeds, "holds true") {
  return arg.has_value() && arg.value() == true;
}
MATCHER_P(Holds, expected, "holds the value " + testing::PrintToString(expected)) {
  return arg.has_value() && arg.value() == expected;
}
MATCHER_P2(FailsWith, code, message, "holds an error with the given code and message") {
  return !arg.has_value() && arg.error().code == code && arg.error().message == message;
}

/** A refusal of the library's own, without a system's code. */
inline auto Refuses(std::string message) {
  return FailsWith(noCode(), std::move(message));
}

/** Lines at error priority, in order. */
inline std::vector<LogLine> errorLines(std::initializer_list<std::string> texts) {
  std::vector<LogLine> lines;
  for (const std::string& text : texts) {
    lines.push_back(errorLine(text));
  }
  return lines;
}

}  // namespace KELP::Test
