#include "roles.h"
#include "steps.h"

namespace CrashDemo {
namespace {

using KELP::Diagnostic::DiagnosticReport;

/** A stage that follows the user's decision. */
struct Stage {
  const char* name;
  bool (DiagnosticReport::*mayFollow)() const;
  DiagnosticReport::Result (DiagnosticReport::*mark)();
};

constexpr Stage kStages[] = {
    {"data collection complete", &DiagnosticReport::canCollectData,
     &DiagnosticReport::markDataCollectionComplete},
    {"data policy applied", &DiagnosticReport::canApplyDataPolicy,
     &DiagnosticReport::markDataPolicyApplied},
    {"upload complete", &DiagnosticReport::canUpload, &DiagnosticReport::markUploadComplete},
};

void show(const Console& console, const DiagnosticReport& report) {
  console.field("description", require(report.getDescription(), "description"));
  console.field("process", require(report.getProcessName(), "process name") + ", id " +
                               std::to_string(require(report.getPID(), "process id")));
  console.field("consent", std::to_string(report.getCurrentConsentLevel()) + " of at most " +
                               std::to_string(report.getMaxConsentLevel()));
}

}  // namespace

void runConsent(const Console& console, const Assignment& assignment) {
  const auto report = require(assignment.reports.openReport(assignment.id), "opening the report");
  console.say("opened report " + report->getId().toString());

  require(report->acquireWriteLock(/*wait=*/true), "taking the write lock");
  console.say("took the write lock; the report says");
  show(console, *report);
  require(report->isCreationComplete(), "finding the creation complete");

  const int level = report->getMaxConsentLevel();
  require(report->setCurrentConsentLevel(level), "setting the consent level");
  console.say("set the consent level to " + std::to_string(level));
  require(report->markUserInteractionComplete(), "marking user interaction complete");
  console.say("marked user interaction complete");

  for (const Stage& stage : kStages) {
    require((report.get()->*stage.mayFollow)(), std::string("being ready for ") + stage.name);
    require((report.get()->*stage.mark)(), std::string("marking ") + stage.name);
    console.say(std::string("marked ") + stage.name);
  }
  require(report->releaseLock(), "releasing the lock");
  console.say("released the lock");
}

}  // namespace CrashDemo
