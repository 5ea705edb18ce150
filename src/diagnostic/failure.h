#pragma once

#include "os/log.h"

#include <diagnostic/diagnosticerror.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

/** How operations fail: one log line at error priority, and the error to return. */
namespace KELP::Diagnostic {

/** The code of the library's own refusals. */
inline std::error_code noCode() {
  return {0, std::system_category()};
}

/** The code of the system call that has just failed. */
inline std::error_code lastSystemError() {
  return {errno, std::system_category()};
}

/** Logs @p line with its arguments and makes the error of @p code and @p message. */
template <typename... Args>
DiagnosticError fail(std::error_code code, std::string message,
                     OS::LogFormat<std::type_identity_t<Args>...> line, Args... arguments) {
  OS::logError<Args...>(line, arguments...);
  return {code, std::move(message)};
}

/** A failure whose log line is its message. */
inline DiagnosticError fail(std::error_code code, OS::LogFormat<> message) {
  return fail(code, message.text(), message);
}

/** A refusal whose log line is its message. */
inline DiagnosticError fail(OS::LogFormat<> message) {
  return fail(noCode(), message);
}

/** Logs a line of its own for a failure that another operation detected, and passes that on. */
template <typename... Args>
DiagnosticError passOn(DiagnosticError error, OS::LogFormat<std::type_identity_t<Args>...> line,
                       Args... arguments) {
  OS::logError<Args...>(line, arguments...);
  return error;
}

}  // namespace KELP::Diagnostic
