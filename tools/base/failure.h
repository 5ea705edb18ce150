#pragma once

#include <stdexcept>
#include <string>

namespace KELP::Tool {

/** What the program tells its caller at the end. */
enum class ExitStatus : int {
  Done = 0,
  Failed = 1,
  Usage = 2,
  NotFound = 3,
  Busy = 4,
  Damage = 5,
};

/** Ends a verb: main() prints the message as "kelp-diagnostics: MESSAGE" and exits with the status.
 */
class Failure : public std::runtime_error {
 public:
  Failure(ExitStatus status, const std::string& message)
      : std::runtime_error(message), status_(status) {}

  [[nodiscard]] ExitStatus status() const { return status_; }

 private:
  ExitStatus status_;
};

}  // namespace KELP::Tool
