#include "openreport.h"

#include "steps.h"

namespace CrashDemo {

OpenReport::OpenReport(const Console& console, Assignment& assignment)
    : console_(console),
      changes_(assignment.changes),
      report_(require(assignment.reports.openReport(assignment.id), "opening the report")) {
  require(report_->acquireWriteLock(/*wait=*/true), "taking the write lock");
  console_.say("opened report " + report_->getId().toString() + " and took the write lock");
}

void OpenReport::release() {
  require(report_->releaseLock(), "releasing the lock");
  console_.say("released the lock");
}

}  // namespace CrashDemo
