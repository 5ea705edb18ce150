#pragma once

#include "roles.h"

#include <memory>

namespace CrashDemo {

/** The report of this run, opened by one role and held with its write lock. */
class OpenReport {
 public:
  OpenReport(const Console& console, Assignment& assignment);

  // Whoever asks for the report may be about to change it.

  KELP::Diagnostic::DiagnosticReport* operator->() { return &**this; }
  KELP::Diagnostic::DiagnosticReport& operator*() {
    changes_.change();
    return *report_;
  }

  /** Releases the lock, which also tells that the role is done. */
  void release();

 private:
  const Console& console_;
  ChangeLog& changes_;
  std::unique_ptr<KELP::Diagnostic::DiagnosticReport> report_;
};

}  // namespace CrashDemo
