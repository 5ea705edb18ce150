#include "contents.h"
#include "openreport.h"
#include "roles.h"
#include "steps.h"
#include "workerlog.h"

#include <sys/utsname.h>

namespace CrashDemo {
namespace {

/** What runs on this device; not its name, which somebody chose. */
std::string systemText() {
  utsname system{};
  require(::uname(&system) == 0, "asking for the system's name");
  return std::string("kernel  ") + system.sysname + ' ' + system.release + "\nmachine " +
         system.machine + '\n';
}

}  // namespace

void runCollector(const Console& console, Assignment& assignment) {
  OpenReport report(console, assignment);
  require(report->canCollectData(), "being allowed to collect data");

  require(report->createReportFileProperty(Contents::kSystem, Contents::kPlainText, {"system"}),
          "creating the property of the system");
  Contents::addText(*report, Contents::kSystem, Contents::kTechnical, systemText());
  console.say("wrote what the system is, and moved it into the report");

  const auto log = logFileOf(assignment.logs, require(report->getProcessName(), "process name"),
                             require(report->getPID(), "process id"));
  require(report->createReportFileProperty(Contents::kLog, Contents::kPlainText, {"crash"}),
          "creating the property of the log");
  require(report->copyFileToFileProperty(Contents::kLog, Contents::kPersonal, log,
                                         /*fileName=*/"log.txt", /*overwrite=*/false),
          "copying the log");
  console.say("copied the worker's log into the report: " + Contents::describeFile(log));

  require(report->markDataCollectionComplete(), "marking data collection complete");
  console.say("marked data collection complete");
  report.release();
}

}  // namespace CrashDemo
