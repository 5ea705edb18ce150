#include "contents.h"
#include "roles.h"
#include "steps.h"
#include "watchedprocess.h"

#include <signal.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <sstream>

namespace CrashDemo {
namespace {

using KELP::Diagnostic::DiagnosticReport;

/** What the watcher found out about a crash. */
struct Crash {
  int pid;
  std::string processName;
  CrashNotice notice;
  double uptime;  ///< In seconds.
  std::string memoryMap;
  std::vector<std::string> libraries;
  bool coreDumped;
};

std::string signalName(int signal) {
  const char* name = ::sigabbrev_np(signal);
  return name == nullptr ? "signal " + std::to_string(signal) : std::string("SIG") + name;
}

std::string reason(const CrashNotice& notice) {
  if (notice.signal != SIGSEGV) {
    const char* text = ::sigdescr_np(notice.signal);
    return text == nullptr ? "unknown signal" : text;
  }
  return notice.code == SEGV_MAPERR   ? "nothing mapped at the address"
         : notice.code == SEGV_ACCERR ? "access not permitted at the address"
                                      : "code " + std::to_string(notice.code);
}

/** Without the address: unlike the contents, the description has no level of sensitivity. */
std::string describe(const CrashNotice& notice) {
  return signalName(notice.signal) + " (" + std::to_string(notice.signal) + "): " + reason(notice);
}

std::string hexadecimal(std::uint64_t number) {
  std::ostringstream text;
  text << "0x" << std::hex << number;
  return text.str();
}

/** Runs the worker until it crashes, and looks at it before it is gone. */
Crash watchWorker(const Console& console, const Assignment& assignment) {
  console.say("starting a worker, to watch it");
  std::filesystem::create_directories(assignment.logs);
  WatchedProcess worker(
      {(ownPath().parent_path() / "faulty_worker").string(), assignment.logs.string()});

  const auto notice = worker.waitForCrash();
  require(notice.has_value(), "the worker was to crash, and did not");
  Crash crash{worker.pid(),
              worker.name(),
              *notice,
              worker.age().count(),
              worker.memoryMap(),
              worker.loadedLibraries(),
              false};
  console.say("process " + std::to_string(crash.pid) + " (" + crash.processName + ") crashed");
  console.field("signal", describe(*notice));
  console.field("address", hexadecimal(notice->address));
  console.field("memory map", std::to_string(crash.libraries.size()) + " libraries");

  const int status = worker.letGo();
  require(WIFSIGNALED(status) && WTERMSIG(status) == notice->signal,
          "the worker was to die by its signal");
  crash.coreDumped = WCOREDUMP(status);
  console.say("process " + std::to_string(crash.pid) + " is dead, killed by " +
              signalName(WTERMSIG(status)));
  return crash;
}

void recordFields(const Console& console, DiagnosticReport& report, const Crash& crash) {
  require(report.setDescription(describe(crash.notice)), "setting the description");
  require(report.setPID(crash.pid), "setting the process id");
  require(report.setProcessName(crash.processName), "setting the process name");
  require(report.setLoadedLibraries(crash.libraries), "setting the libraries");
  console.say("recorded description, process id, process name and libraries");
}

/** An address tells how the process's memory was laid out; its offset in a page does not. */
void recordAddress(DiagnosticReport& report, std::uint64_t address) {
  const auto page = static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
  const auto add = [&](int level, const std::string& text) {
    require(report.addReportStringVariation(Contents::kFaultAddress, level, text,
                                            /*overwrite=*/false),
            "adding the address");
  };
  require(report.createReportStringProperty(Contents::kFaultAddress, {"crash"}),
          "creating the property of the address");
  add(Contents::kTechnical, hexadecimal(address % page) + " from the start of its page");
  add(Contents::kPersonal, hexadecimal(address));
}

void recordContents(const Console& console, DiagnosticReport& report, const Crash& crash) {
  constexpr int kLevel = Contents::kTechnical;
  const std::set<std::string> tags{"crash"};
  require(report.createReportIntegerProperty(Contents::kSignal, tags) &&
              report.addReportIntegerVariation(Contents::kSignal, kLevel, crash.notice.signal,
                                               /*overwrite=*/false),
          "recording the signal");
  recordAddress(report, crash.notice.address);
  require(report.createReportDoubleProperty(Contents::kUptime, tags) &&
              report.addReportDoubleVariation(Contents::kUptime, kLevel, crash.uptime,
                                              /*overwrite=*/false),
          "recording the uptime");
  require(report.createReportBooleanProperty(Contents::kCoreDumped, tags) &&
              report.addReportBooleanVariation(Contents::kCoreDumped, kLevel, crash.coreDumped,
                                               /*overwrite=*/false),
          "recording whether there is a core file");
  require(report.createReportFileProperty(Contents::kMemoryMap, Contents::kPlainText,
                                          {"crash", "memory"}),
          "creating the property of the memory map");
  Contents::addText(report, Contents::kMemoryMap, Contents::kPersonal, crash.memoryMap);
  console.say("added signal, address, uptime, memory map and whether a core file was written");
}

void record(const Console& console, Assignment& assignment, const Crash& crash) {
  assignment.changes.change();
  const auto report =
      require(assignment.reports.createReport(assignment.id, /*appId=*/100, /*buildId=*/2024,
                                              /*userId=*/1, "demo-device", "demo-session"),
              "creating the report");
  console.say("created report " + report->getId().toString());

  require(report->acquireWriteLock(/*wait=*/true), "taking the write lock");
  recordFields(console, *report, crash);
  recordContents(console, *report, crash);
  require(report->setMaxConsentLevel(Contents::kPersonal), "setting the maximum consent level");
  require(report->setCurrentConsentLevel(Contents::kPersonal), "setting the consent level");
  console.say("proposed the consent level " + std::to_string(Contents::kPersonal) +
              ", which is also its maximum");
  assignment.changes.change();
  require(report->markCreationComplete(), "marking creation complete");
  require(report->releaseLock(), "releasing the lock");
  console.say("marked creation complete and released the lock");
}

}  // namespace

void runWatcher(const Console& console, Assignment& assignment) {
  record(console, assignment, watchWorker(console, assignment));
}

}  // namespace CrashDemo
