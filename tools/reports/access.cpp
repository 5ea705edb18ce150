#include "reports/access.h"

#include "base/failure.h"
#include "base/interrupt.h"
#include "base/log.h"
#include "reports/repository.h"

#include <diagnostic/diagnosticdata.h>

#include <algorithm>
#include <chrono>

namespace KELP::Tool {

using Diagnostic::DiagnosticReport;

bool takeWriteLock(DiagnosticReport& report, long waitMs) {
  using Clock = std::chrono::steady_clock;
  using std::chrono::milliseconds;
  constexpr milliseconds kStep{250};
  constexpr milliseconds kLongest = std::chrono::hours(24 * 365);
  const auto end = Clock::now() + std::min(milliseconds(waitMs), kLongest);
  for (;;) {
    checkInterrupt();
    const auto left = std::chrono::duration_cast<milliseconds>(end - Clock::now());
    if (report.waitForAndAquireWriteLock(std::clamp(left, milliseconds(0), kStep).count())) {
      return true;
    }
    if (left <= kStep) {
      return false;
    }
  }
}

namespace {

/** Throws why a report that was sound a moment ago does not open. */
[[noreturn]] void explainRefusal(const std::filesystem::path& root, const std::string& name) {
  const std::string logged = lastLoggedError();
  static_cast<void>(findSoundReport(root, name));  // It may be gone, or damaged, by now.
  throw Failure(ExitStatus::Failed,
                "cannot open the report " + name + (logged.empty() ? "" : ": " + logged));
}

}  // namespace

std::unique_ptr<DiagnosticReport> openForChange(const std::filesystem::path& root,
                                                const std::string& prefix, long waitMs) {
  const StoredReport stored = findReport(root, prefix);
  if (stored.lock == LockState::Write && waitMs <= 0) {
    failAsBusy(stored.name);  // Opening would wait for the writer.
  }
  requireSound(stored);
  auto report = Diagnostic::DiagnosticData(root).openReport(stored.id);
  if (!report) {
    explainRefusal(root, stored.name);
  }
  if (!takeWriteLock(*report, waitMs)) {
    failAsBusy(stored.name);
  }
  return report;
}

void require(const DiagnosticReport::Result& result) {
  if (!result) {
    std::string message = result.error().message;
    if (const std::error_code code = result.error().code; code) {
      message += ": " + code.message();
    }
    throw Failure(ExitStatus::Failed, message);
  }
}

}  // namespace KELP::Tool
