// The lock of a report. Nothing on disk tells of it.

#include "faults/sweep/scenes.h"

namespace KELP::Test {
namespace {

const Expectation kReading{{{"Failed acquire read lock for report", true}}};
const Expectation kWriting{{{"Failed acquire write lock for report", true}}};

}  // namespace

std::vector<Operation> lockOperations() {
  return {
      {"AcquireReadLock", prepareReport, openUnlocked,
       [](Scene& s) { return told(s.report->acquireReadLock(false)); }, kReading},
      {"AcquireWriteLock", prepareReport, openUnlocked,
       [](Scene& s) { return told(s.report->acquireWriteLock(true)); }, kWriting},
      {"ReadLockToWriteLock", prepareReport, openReadLocked,
       [](Scene& s) { return told(s.report->acquireWriteLock(false)); }, kWriting},
      {"WriteLockToReadLock", prepareReport, openLocked,
       [](Scene& s) { return told(s.report->acquireReadLock(true)); }, kReading},
      {"WaitForReadLock", prepareReport, openUnlocked,
       [](Scene& s) { return told(s.report->waitForAndAquireReadLock(20)); }, kReading},
      {"WaitForWriteLock", prepareReport, openUnlocked,
       [](Scene& s) { return told(s.report->waitForAndAquireWriteLock(20)); }, kWriting},
      {"ReleaseLock",
       prepareReport,
       openLocked,
       [](Scene& s) { return told(s.report->releaseLock()); },
       {.errors = {{"Failed release lock for report", true}}, .interruptible = true}},
  };
}

}  // namespace KELP::Test
