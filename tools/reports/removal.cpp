#include "reports/removal.h"

#include "base/files.h"
#include "base/text.h"

#include <diagnostic/diagnosticdata.h>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

namespace KELP::Tool {
namespace {

namespace fs = std::filesystem;
using Diagnostic::DiagnosticData;
using Diagnostic::DiagnosticError;
using Diagnostic::DiagnosticReport;
using Outcome = Removal::Outcome;

const Removal kBusy{Outcome::Busy, "in use"};
const Removal kGone{Outcome::Gone, "gone already"};

fs::path lockOf(const StoredReport& report) {
  return report.directory / DiagnosticReport::kReportLockFilename;
}

/** Whether somebody holds the report now. The library asks too, but first waits for a writer, and
 *  does not ask for a report that does not open. */
bool isInUse(const StoredReport& report) {
  return LockTable().stateOf(lockOf(report)) != LockState::Free;
}

/** As isInUse(), by trying. The table of locks lacks those of processes that cannot be seen. */
bool isLocked(const StoredReport& report) {
  const int lock =
      ::open(lockOf(report).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  const bool isLocked = lock >= 0 && ::flock(lock, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  ::close(lock);
  return isLocked;
}

std::string textOf(const DiagnosticError& error) {
  return escaped(error.code ? error.message + ": " + error.code.message() : error.message);
}

/** What a report that could not be removed is now. */
Removal explain(const fs::path& root, const StoredReport& report, const DiagnosticError& error) {
  if (error.message == "Unable to acquire write lock on report" || isInUse(report)) {
    return kBusy;
  }
  if (!entryAt(report.directory)) {
    return kGone;
  }
  const StoredReport now = readReport(root, report.name, LockTable());
  if (report.isSound() && !now.isSound()) {
    return {Outcome::Failed, textOf(error) + "; a part of it is left"};
  }
  return {Outcome::Failed, textOf(error)};
}

}  // namespace

Removal removeReport(const fs::path& root, const StoredReport& report, bool force) {
  const auto directory = entryAt(report.directory);
  if (!directory) {
    return kGone;
  }
  if (!directory->isDirectory()) {
    return {Outcome::Failed, std::string("it is ") + directory->typeText()};
  }
  if (isInUse(report)) {
    return kBusy;
  }
  if (!report.isSound()) {
    if (report.soundness == Soundness::Unreadable) {
      return {Outcome::Failed, report.refusal.message()};
    }
    if (!force) {
      return {Outcome::Damaged, report.stageText()};
    }
    if (isLocked(report)) {
      return kBusy;
    }
  }
  const auto deleted = DiagnosticData(root).deleteReport(report.id, force);
  return deleted ? Removal{Outcome::Removed, {}} : explain(root, report, deleted.error());
}

}  // namespace KELP::Tool
