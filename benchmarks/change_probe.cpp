#include "changememory.h"
#include "probe.h"
#include "sampledata.h"

#include <diagnostic/diagnosticdata.h>

#include <cstddef>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

// change_probe latency MEMORY ROOT_OF_LIBRARY ROOT_OF_BARE
// change_probe burst MEMORY ROOT
//
// Changes reports while another process watches them. It prints a line when it has opened them,
// begins when it gets one, and prints another when it is done.
//
// For "latency", the first reports of two roots are changed in turn, so that what else the machine
// does falls on both watchers alike. Between two changes there is at least a millisecond, in which
// the watcher falls asleep. For "burst", all reports of a root are changed as fast as possible.

namespace KELP::Bench {
namespace {

constexpr std::chrono::milliseconds kPause{1};
/** How much longer than that a watcher may take. */
constexpr std::chrono::seconds kPatience{1};

using Reports = std::vector<std::unique_ptr<Diagnostic::DiagnosticReport>>;

/** The reports of a root, with their write locks. */
Reports openReports(const std::string& root) {
  const Diagnostic::DiagnosticData repository(root);
  Reports reports;
  for (const auto& id : repository.getAllReportUuids()) {
    reports.push_back(repository.openReport(id));
    require(reports.back() && reports.back()->acquireWriteLock(true), "opening a report");
  }
  return reports;
}

void change(Diagnostic::DiagnosticReport& report, std::size_t number) {
  require(report.setDescription("change " + std::to_string(number)).has_value(), "setDescription");
}

void waitForWatcher(const ChangeMemory::Change& change) {
  std::this_thread::sleep_for(kPause);
  const auto end = Clock::now() + kPatience;
  while (change.updates < kUpdatesOfChange && Clock::now() < end) {
    std::this_thread::sleep_for(kPause);
  }
}

void changeInTurn(const SharedChangeMemory& memory, const Reports& ofLibrary,
                  const Reports& ofBare) {
  for (std::size_t i = 0; i < kLatencyChanges; ++i) {
    memory->current = i;
    for (const Watcher watcher : {kLibrary, kBare}) {
      ChangeMemory::Change& times = memory->changes[i][watcher];
      times.called = Clock::now();
      change(*(watcher == kLibrary ? ofLibrary : ofBare).front(), i);
      times.returned = Clock::now();
      waitForWatcher(times);
    }
  }
}

void changeAll(const SharedChangeMemory& memory, const Reports& reports) {
  memory->burstStart = Clock::now();
  for (std::size_t i = 0; i < kBurstChanges; ++i) {
    for (const auto& report : reports) {
      change(*report, i);
    }
  }
}

int run(const std::vector<std::string>& arguments) {
  if (arguments.size() == 4 && arguments[0] == "latency") {
    const SharedChangeMemory memory(arguments[1]);
    const Reports ofLibrary = openReports(arguments[2]);
    const Reports ofBare = openReports(arguments[3]);
    waitForGo();
    changeInTurn(memory, ofLibrary, ofBare);
  } else if (arguments.size() == 3 && arguments[0] == "burst") {
    const SharedChangeMemory memory(arguments[1]);
    const Reports reports = openReports(arguments[2]);
    waitForGo();
    changeAll(memory, reports);
  } else {
    std::cerr << "usage: change_probe latency MEMORY ROOT_OF_LIBRARY ROOT_OF_BARE\n"
                 "       change_probe burst MEMORY ROOT\n";
    return 2;
  }
  std::cout << "done" << std::endl;
  return 0;
}

}  // namespace
}  // namespace KELP::Bench

int main(int argc, char** argv) {
  return KELP::Bench::runProbe("change_probe", argc, argv, KELP::Bench::run);
}
