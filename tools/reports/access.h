#pragma once

#include <diagnostic/diagnosticreport.h>

#include <filesystem>
#include <memory>
#include <string>

/** Opening reports to change them. */
namespace KELP::Tool {

/**
 * Opens the report that begins with @p prefix and takes its write lock, for which it waits @p
 * waitMs. Throws a Failure: NotFound, Usage (several), Damage, or Busy when somebody else keeps the
 * lock.
 */
[[nodiscard]] std::unique_ptr<Diagnostic::DiagnosticReport> openForChange(
    const std::filesystem::path& root, const std::string& prefix, long waitMs);

/**
 * Takes the write lock of @p report, for which it waits @p waitMs; 0 is one attempt.
 *
 * @return false when somebody else keeps it. Throws Interrupted when a signal comes.
 */
[[nodiscard]] bool takeWriteLock(Diagnostic::DiagnosticReport& report, long waitMs);

/** Throws a Failure with the message of @p result unless it succeeded. */
void require(const Diagnostic::DiagnosticReport::Result& result);

}  // namespace KELP::Tool
