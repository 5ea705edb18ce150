#include "check/examination.h"

#include "base/files.h"
#include "base/interrupt.h"
#include "base/progress.h"
#include "check/finders.h"
#include "check/subject.h"
#include "reports/locktable.h"

#include <diagnostic/diagnosticreport.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <iterator>
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

std::chrono::nanoseconds timeOf(const timespec& time) {
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/** Whether nothing in a report has changed lately. A time that is yet to come says nothing. */
bool isSettled(const Entry& directory) {
  timespec clock{};
  ::clock_gettime(CLOCK_REALTIME, &clock);
  const std::chrono::nanoseconds now = timeOf(clock);
  bool isSettled = true;
  const auto look = [&](const Entry& entry) {
    const auto age = now - timeOf(entry.status.st_ctim);
    isSettled = isSettled && (age.count() < 0 || age >= kSettling);
  };
  look(directory);
  forEachBelow(directory.path, look);
  return isSettled;
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
    const fs::path directory = root_ / name;
    if (::access(directory.c_str(), R_OK | X_OK) != 0) {
      if (errno != ENOENT) {
        skip(name, std::system_category().message(errno), true);
      }
      return;
    }
    const Subject subject = readSubject(root_, name, locks);
    Findings findings = findInReport(subject);
    if (subject.report.lock == LockState::Write) {
      skip(name, "in use", false);
    } else if (!findings.empty()) {
      confirm(name, std::move(findings));
    }
  }

  /** Decides whether findings count. */
  void confirm(const std::string& name, Findings findings) {
    const auto directory = entryAt(root_ / name);
    if (!directory) {
      return;  // It has been deleted.
    }
    const auto lock = directory->path / DiagnosticReport::kReportLockFilename;
    if (LockTable().stateOf(lock) == LockState::Write) {
      skip(name, "in use", false);
    } else if (isSettled(*directory)) {
      std::move(findings.begin(), findings.end(), std::back_inserter(result_.findings));
    } else if (isLast_) {
      skip(name, "changing all the time", false);
    } else {
      again_.push_back(name);
    }
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
  static_cast<void>(reportNames(root));  // Fails when the root cannot be read.
  return examineEntries(root, entriesOf(root));
}

}  // namespace KELP::Tool
