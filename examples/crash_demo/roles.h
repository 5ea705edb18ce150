#pragma once

#include "changelog.h"
#include "console.h"

#include <diagnostic/diagnosticdata.h>
#include <diagnostic/reportuuid.h>

#include <filesystem>

namespace CrashDemo {

/** What a role works on. */
struct Assignment {
  /** @param directory an absolute path: reports record where their files are. */
  Assignment(const std::filesystem::path& directory, KELP::Diagnostic::ReportUuid reportId)
      : reports(directory / "reports"),
        logs(directory / "logs"),
        outbox(directory / "outbox"),
        id(reportId),
        changes(directory / "changes") {}

  KELP::Diagnostic::DiagnosticData reports;
  std::filesystem::path logs;       ///< Where programs of this device write their logs.
  std::filesystem::path outbox;     ///< What is in here leaves the device.
  KELP::Diagnostic::ReportUuid id;  ///< Of the report that this run is about.
  ChangeLog changes;                ///< To be told of each change of the report.
};

// Each role runs in a process of its own and throws StepFailed when a step does not succeed.

/** Tells of all that happens to the report, until it is removed or there is no more input. Runs
 *  beside the others. If its standard input is a socket, it sends one byte when it observes, and
 * one when the report was added. */
void runObserver(const Console& console, Assignment& assignment);

// The others are played one after the other, in this order.

/** Runs the faulty worker, and makes a report of its crash. */
void runWatcher(const Console& console, Assignment& assignment);

/** Adds what can be found out after the crash: the worker's log, and a word on the system. */
void runCollector(const Console& console, Assignment& assignment);

/** Takes secrets out of the log, and adds one that names no home directory. */
void runFilter(const Console& console, Assignment& assignment);

/** Asks the user, who consents to less than was proposed. */
void runConsent(const Console& console, Assignment& assignment);

/** Drops what the user has not consented to. */
void runPolicy(const Console& console, Assignment& assignment);

/** Copies the best that is left to the outbox. */
void runUploader(const Console& console, Assignment& assignment);

/** Lists the reports, shows the one of this run in full, and deletes it. */
void runViewer(const Console& console, Assignment& assignment);

}  // namespace CrashDemo
