#include "roles.h"
#include "steps.h"
#include "watchedprocess.h"

#include <signal.h>
#include <string.h>
#include <sys/wait.h>

#include <sstream>

namespace CrashDemo {
namespace {

/** What the watcher found out about a crash. */
struct Crash {
  int pid;
  std::string processName;
  std::vector<std::string> libraries;
  std::string description;
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
  return notice.code == SEGV_MAPERR   ? "nothing mapped there"
         : notice.code == SEGV_ACCERR ? "access not permitted there"
                                      : "code " + std::to_string(notice.code);
}

std::string describe(const CrashNotice& notice) {
  std::ostringstream text;
  text << signalName(notice.signal) << " (" << notice.signal << ") at address 0x" << std::hex
       << notice.address << ": " << reason(notice);
  return text.str();
}

/** Runs the worker until it crashes, and looks at it before it is gone. */
Crash watchWorker(const Console& console) {
  console.say("starting a worker, to watch it");
  WatchedProcess worker(ownPath().parent_path() / "faulty_worker");

  const auto notice = worker.waitForCrash();
  require(notice.has_value(), "the worker was to crash, and did not");
  Crash crash{worker.pid(), worker.name(), worker.loadedLibraries(), describe(*notice)};
  console.say("process " + std::to_string(crash.pid) + " (" + crash.processName + ") crashed");
  console.field("signal", crash.description);
  console.field("memory map", std::to_string(crash.libraries.size()) + " libraries");

  const int status = worker.letGo();
  require(WIFSIGNALED(status) && WTERMSIG(status) == notice->signal,
          "the worker was to die by its signal");
  console.say("process " + std::to_string(crash.pid) + " is dead, killed by " +
              signalName(WTERMSIG(status)));
  return crash;
}

void record(const Console& console, const Assignment& assignment, const Crash& crash) {
  const auto report =
      require(assignment.reports.createReport(assignment.id, /*appId=*/100, /*buildId=*/2024,
                                              /*userId=*/1, "demo-device", "demo-session"),
              "creating the report");
  console.say("created report " + report->getId().toString());

  require(report->acquireWriteLock(/*wait=*/true), "taking the write lock");
  require(report->setDescription(crash.description), "setting the description");
  require(report->setPID(crash.pid), "setting the process id");
  require(report->setProcessName(crash.processName), "setting the process name");
  require(report->setLoadedLibraries(crash.libraries), "setting the libraries");
  console.say("recorded description, process id, process name and libraries");
  require(report->setCurrentConsentLevel(0), "setting the consent level");
  require(report->setMaxConsentLevel(20), "setting the maximum consent level");
  console.say("set the consent level to 0 until the user is asked, and its maximum to 20");
  require(report->markCreationComplete(), "marking creation complete");
  require(report->releaseLock(), "releasing the lock");
  console.say("marked creation complete and released the lock");
}

}  // namespace

void runWatcher(const Console& console, const Assignment& assignment) {
  record(console, assignment, watchWorker(console));
}

}  // namespace CrashDemo
