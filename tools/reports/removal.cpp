#include "reports/removal.h"

#include "base/text.h"

#include <diagnostic/diagnosticdata.h>

#include <sys/stat.h>

#include <cerrno>

namespace KELP::Tool {
namespace {

namespace fs = std::filesystem;
using Diagnostic::DiagnosticData;
using Diagnostic::DiagnosticError;
using Diagnostic::DiagnosticReport;
using Outcome = Removal::Outcome;

constexpr const char* kBusy = "in use";

/** Whether somebody holds the report now. The library asks too, but first waits for a writer, and
 *  does not ask for a report that does not open. */
bool isInUse(const StoredReport& report) {
  return LockTable().stateOf(report.directory / DiagnosticReport::kReportLockFilename) !=
         LockState::Free;
}

bool isGone(const fs::path& directory) {
  struct stat status {};
  return ::lstat(directory.c_str(), &status) != 0 && errno == ENOENT;
}

std::string textOf(const DiagnosticError& error) {
  return escaped(error.code ? error.message + ": " + error.code.message() : error.message);
}

Removal explain(const fs::path& root, const StoredReport& report, bool force,
                const DiagnosticError& error) {
  if (error.message == "Unable to acquire write lock on report" || isInUse(report)) {
    return {Outcome::Busy, kBusy};
  }
  if (isGone(report.directory)) {
    return {Outcome::Gone, "gone already"};
  }
  const StoredReport now = readReport(root, report.name, LockTable());
  return force || now.isSound() ? Removal{Outcome::Failed, textOf(error)}
                                : Removal{Outcome::Damaged, now.stageText()};
}

}  // namespace

Removal removeReport(const fs::path& root, const StoredReport& report, bool force) {
  if (isInUse(report)) {
    return {Outcome::Busy, kBusy};
  }
  if (!force && !report.isSound()) {
    return {Outcome::Damaged, report.stageText()};
  }
  const auto deleted = DiagnosticData(root).deleteReport(report.id, force);
  if (deleted) {
    return {Outcome::Removed, {}};
  }
  return explain(root, report, force, deleted.error());
}

}  // namespace KELP::Tool
