#include "diagnostic/failure.h"
#include "os/filedescriptor.h"

#include <diagnostic/diagnosticreport.h>

#include <sys/file.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>

// The lock of a report: docs/architecture.md.

namespace KELP::Diagnostic {
namespace {

/** Milliseconds from @p start to @p end. The microseconds of each are cut to milliseconds first. */
long elapsedMs(const timeval& start, const timeval& end) {
  return (end.tv_sec - start.tv_sec) * 1000 + end.tv_usec / 1000 - start.tv_usec / 1000;
}

timeval wallClock() {
  timeval now{};
  ::gettimeofday(&now, nullptr);
  return now;
}

}  // namespace

/** What distinguishes the read lock from the write lock. */
struct DiagnosticReport::LockKind {
  bool shared;
  int operation;
  const char* withoutDescriptor;
  const char* failure;
  OS::LogFormat<int, const char*> failureLine;

  static const LockKind kRead;
  static const LockKind kWrite;
};

const DiagnosticReport::LockKind DiagnosticReport::LockKind::kRead{
    true, LOCK_SH, "Unable to acquire read lock for report with no valid lock file descriptor",
    "Failed acquire read lock for report", "Failed acquire read lock for report. errno = %d (%s)"};

const DiagnosticReport::LockKind DiagnosticReport::LockKind::kWrite{
    false, LOCK_EX, "Unable to acquire write lock for report with no valid lock file descriptor",
    "Failed acquire write lock for report",
    "Failed acquire write lock for report. errno = %d (%s)"};

DiagnosticReport::Result DiagnosticReport::acquireReadLock(bool wait) {
  return acquireLock(LockKind::kRead, wait);
}

DiagnosticReport::Result DiagnosticReport::acquireWriteLock(bool wait) {
  return acquireLock(LockKind::kWrite, wait);
}

DiagnosticReport::Result DiagnosticReport::waitForAndAquireReadLock(long timeoutMs) {
  return waitForLock(LockKind::kRead, timeoutMs);
}

DiagnosticReport::Result DiagnosticReport::waitForAndAquireWriteLock(long timeoutMs) {
  return waitForLock(LockKind::kWrite, timeoutMs);
}

DiagnosticReport::Result DiagnosticReport::releaseLock() {
  if (!locked_) {
    return true;
  }
  if (::flock(lockDescriptor_, LOCK_UN) != 0) {
    const std::error_code code = lastSystemError();
    return fail(code, "Failed release lock for report",
                "Failed to release lock for report. errno = %d (%s)", code.value(),
                code.message().c_str());
  }
  locked_ = false;
  shared_ = false;
  return true;
}

DiagnosticReport::Result DiagnosticReport::acquireLock(const LockKind& kind, bool wait) {
  if (locked_ && shared_ == kind.shared) {
    return true;
  }
  if (lockDescriptor_ == -1) {
    return DiagnosticError(noCode(), kind.withoutDescriptor);
  }
  const int operation = wait ? kind.operation : kind.operation | LOCK_NB;
  if (OS::retryOnSignal([&] { return ::flock(lockDescriptor_, operation); }) != 0) {
    const std::error_code code = lastSystemError();
    return fail(code, kind.failure, kind.failureLine, code.value(), code.message().c_str());
  }
  locked_ = true;
  shared_ = kind.shared;
  return true;
}

DiagnosticReport::Result DiagnosticReport::waitForLock(const LockKind& kind, long timeoutMs) {
  constexpr int kLastDoubling = 8;
  const timeval start = wallClock();
  Result result = acquireLock(kind, false);
  for (int attempt = 0; !result && elapsedMs(start, wallClock()) < timeoutMs; ++attempt) {
    ::usleep(1000U << std::min(attempt, kLastDoubling));
    result = acquireLock(kind, false);
  }
  return result;
}

/** Puts @p descriptor, on which no lock is held yet, in the place of the present one, or none (-1).
 *  This is the state of a report that has just been opened. */
void DiagnosticReport::resetLock(int descriptor) {
  if (lockDescriptor_ >= 0) {
    ::close(lockDescriptor_);
  }
  lockDescriptor_ = descriptor;
  locked_ = false;
  shared_ = true;
  touched_ = false;
}

}  // namespace KELP::Diagnostic
