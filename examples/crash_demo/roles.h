#pragma once

#include "console.h"

#include <diagnostic/diagnosticdata.h>
#include <diagnostic/reportuuid.h>

namespace CrashDemo {

/** What a role works on. */
struct Assignment {
  KELP::Diagnostic::DiagnosticData reports;
  KELP::Diagnostic::ReportUuid id;  ///< Of the report that this run is about.
};

// Each role runs in a process of its own and throws StepFailed when a step does not succeed.

/** Runs the faulty worker, and makes a report of its crash. */
void runWatcher(const Console& console, const Assignment& assignment);

/** Takes the report through the stages that follow its creation. */
void runConsent(const Console& console, const Assignment& assignment);

/** Lists the reports, shows the one of this run in full, and deletes it. */
void runViewer(const Console& console, const Assignment& assignment);

}  // namespace CrashDemo
