#include "contents.h"
#include "openreport.h"
#include "roles.h"
#include "steps.h"

namespace CrashDemo {
namespace {

using KELP::Diagnostic::DiagnosticReport;

void show(const Console& console, const DiagnosticReport& report) {
  console.field("description", require(report.getDescription(), "description"));
  console.field("process", require(report.getProcessName(), "process name") + ", id " +
                               std::to_string(require(report.getPID(), "process id")));
  console.field("consent", std::to_string(report.getCurrentConsentLevel()) + " of at most " +
                               std::to_string(report.getMaxConsentLevel()));
}

}  // namespace

void runConsent(const Console& console, Assignment& assignment) {
  OpenReport report(console, assignment);
  console.say("the report says");
  show(console, *report);
  require(report->isCreationComplete(), "finding the creation complete");

  // In the place of a user who is asked.
  constexpr int kDecision = Contents::kCleaned;
  const int proposed = report->getCurrentConsentLevel();
  require(report->setCurrentConsentLevel(kDecision), "setting the consent level");
  console.say("the user lowered the consent level from " + std::to_string(proposed) + " to " +
              std::to_string(kDecision));
  require(report->markUserInteractionComplete(), "marking user interaction complete");
  console.say("marked user interaction complete");
  report.release();
}

}  // namespace CrashDemo
