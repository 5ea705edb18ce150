#pragma once

#include <string>
#include <system_error>
#include <utility>

namespace KELP::Diagnostic {

/** Why an operation failed. A plain value. */
struct DiagnosticError {
  /**
   * Puts the two together.
   *
   * @param errorCode see code.
   * @param text      see message.
   */
  DiagnosticError(std::error_code errorCode, std::string text)
      : code(errorCode), message(std::move(text)) {}

  /**
   * For a failed system call, `errno` in `std::system_category()`; for a failed call of
   * `std::filesystem`, the code which that call gave; for the library's own refusals, 0 in
   * `std::system_category()`.
   */
  std::error_code code;

  /** A fixed English sentence that names what failed. What varies (paths, numbers) is in the log.
   */
  std::string message;
};

}  // namespace KELP::Diagnostic
