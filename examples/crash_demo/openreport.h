#pragma once

#include "roles.h"

#include <memory>

namespace CrashDemo {

/** The report of this run, opened by one role and held with its write lock. */
class OpenReport {
 public:
  OpenReport(const Console& console, const Assignment& assignment);

  KELP::Diagnostic::DiagnosticReport* operator->() const { return report_.get(); }
  KELP::Diagnostic::DiagnosticReport& operator*() const { return *report_; }

  /** Releases the lock, which also tells that the role is done. */
  void release();

 private:
  const Console& console_;
  std::unique_ptr<KELP::Diagnostic::DiagnosticReport> report_;
};

}  // namespace CrashDemo
