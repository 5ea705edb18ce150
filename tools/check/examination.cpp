#include "check/examination.h"

#include "base/files.h"
#include "base/interrupt.h"
#include "base/progress.h"
#include "check/finders.h"
#include "check/stillness.h"
#include "check/subject.h"
#include "reports/locktable.h"

#include <diagnostic/diagnosticreport.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <iterator>
#include <map>
#include <system_error>
#include <thread>
#include <utility>

namespace KELP::Tool {
namespace {

namespace fs = std::filesystem;
using Diagnostic::DiagnosticReport;
using Clock = std::chrono::steady_clock;

/** Whoever does something without a lock does the next step within this time. */
constexpr std::chrono::milliseconds kSettling{1000};
/** How long a report may go on changing before it is left alone. */
constexpr std::chrono::seconds kPatience{5};
constexpr std::chrono::milliseconds kPause{50};

constexpr const char* kInUse = "in use";

std::chrono::nanoseconds now() {
  timespec clock{};
  ::clock_gettime(CLOCK_REALTIME, &clock);
  return std::chrono::seconds(clock.tv_sec) + std::chrono::nanoseconds(clock.tv_nsec);
}

/** The examination of some reports, in rounds. */
class Rounds {
 public:
  Rounds(fs::path root, Examination& result) : root_(std::move(root)), result_(result) {}

  void run(std::vector<std::string> names) {
    const auto end = Clock::now() + kPatience;
    while (!names.empty()) {
      isLast_ = Clock::now() >= end;
      again_.clear();
      const LockTable locks;
      Progress progress("Checking reports", names.size());
      for (const std::string& name : names) {
        look(name, locks);
        progress.step();
      }
      names = std::exchange(again_, {});
      if (!names.empty()) {
        wait();
      }
    }
  }

 private:
  void look(const std::string& name, const LockTable& locks) {
    try {
      const Subject subject = readSubject(root_, name, locks);
      Findings findings = findInReport(subject);
      if (subject.report.lock == LockState::Write) {
        skip(name, kInUse, false);
      } else if (!findings.empty()) {
        confirm(subject, std::move(findings));
      }
    } catch (const std::system_error& error) {
      skip(name, error.code().message(), true);
    }
  }

  /** Decides whether findings count. */
  void confirm(const Subject& subject, Findings findings) {
    const std::string& name = subject.report.name;
    const auto directory = certainEntryAt(subject.directory());
    if (!directory) {
      return;  // It has been deleted.
    }
    // The locks may be others than at the beginning of the round.
    const LockState lock =
        LockTable().stateOf(subject.directory() / DiagnosticReport::kReportLockFilename);
    if (lock == LockState::Write) {
      skip(name, kInUse, false);
      return;
    }
    if (lock != LockState::Free) {
      std::erase_if(findings, [](const Finding& finding) {
        return finding.kind == FindingKind::LeftoverTemporary;
      });
    }
    if (findings.empty() || isSettled(*directory)) {
      std::move(findings.begin(), findings.end(), std::back_inserter(result_.findings));
    } else if (isLast_) {
      skip(name, "changing all the time", false);
    } else {
      again_.push_back(name);
    }
  }

  /** Whether nothing in a report has changed lately. */
  bool isSettled(const Entry& directory) {
    const Stillness stillness = stillnessOf(directory);
    const auto [before, isFirst] = seen_.try_emplace(directory.path.native(), stillness);
    const bool isUnchanged = !isFirst && before->second == stillness;
    before->second = stillness;
    return isUnchanged || stillness.isOlderThan(kSettling, now());
  }

  void skip(const std::string& name, const std::string& reason, bool isFailure) {
    result_.unchecked.push_back({name, reason, isFailure});
  }

  static void wait() {
    for (const auto end = Clock::now() + kSettling; Clock::now() < end;) {
      checkInterrupt();
      std::this_thread::sleep_for(kPause);
    }
  }

  fs::path root_;
  Examination& result_;
  std::vector<std::string> again_;
  std::map<std::string, Stillness> seen_;  ///< In the last round.
  bool isLast_ = false;
};

Examination examineEntries(const fs::path& root, const std::vector<Entry>& entries) {
  Examination result;
  std::vector<std::string> reports;
  for (const Entry& entry : entries) {
    const std::string name = entry.path.filename();
    if (name.starts_with('.')) {
      continue;
    }
    if (auto finding = findNoReport(entry)) {
      result.findings.push_back(*std::move(finding));
    } else {
      reports.push_back(name);
    }
  }
  Rounds(root, result).run(std::move(reports));
  std::stable_sort(result.findings.begin(), result.findings.end(),
                   [](const Finding& a, const Finding& b) { return a.report < b.report; });
  return result;
}

}  // namespace

Examination examine(const fs::path& root, const std::vector<std::string>& names) {
  std::vector<Entry> entries;
  for (const std::string& name : names) {
    if (auto entry = entryAt(root / name)) {
      entries.push_back(*std::move(entry));
    }
  }
  return examineEntries(root, entries);
}

Examination examineAll(const fs::path& root) {
  static_cast<void>(reportNames(root));  // Fails when there is no root, or it cannot be read.
  // The root itself may be a link.
  std::vector<Entry> entries = certainEntriesOf(root / ".");
  for (Entry& entry : entries) {
    entry.path = root / entry.path.filename();
  }
  return examineEntries(root, entries);
}

}  // namespace KELP::Tool
