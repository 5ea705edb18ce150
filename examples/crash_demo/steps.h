#pragma once

#include <diagnostic/diagnosticdata.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

namespace CrashDemo {

/** Ends a role: a step of it did not succeed. */
class StepFailed : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

inline void require(bool succeeded, const std::string& step) {
  if (!succeeded) {
    throw StepFailed("failed: " + step);
  }
}

/** The value of a result that must hold one. */
template <typename T>
T require(KELP::OS::expected<T, KELP::Diagnostic::DiagnosticError> result,
          const std::string& step) {
  require(result.has_value(), result ? "" : step + ": " + result.error().message);
  return std::move(result).value();
}

/** The value of a field that must have been recorded. */
template <typename T>
T require(std::optional<T> field, const std::string& name) {
  require(field.has_value(), name + " is not recorded");
  return std::move(*field);
}

/** A report that must have been created or opened; the library has logged why it was not. */
inline std::unique_ptr<KELP::Diagnostic::DiagnosticReport> require(
    std::unique_ptr<KELP::Diagnostic::DiagnosticReport> report, const std::string& step) {
  require(report != nullptr, step);
  return report;
}

}  // namespace CrashDemo
