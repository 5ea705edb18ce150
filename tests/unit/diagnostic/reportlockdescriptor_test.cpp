// A lock file whose descriptor is number 0, as it gets in a process that closed its standard input.

#include "unit/diagnostic/reportfixture.h"
#include "unit/diagnostic/systemcalls.h"

#include <diagnostic/diagnosticreport.h>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;

/** While it lives, the process has no standard input, so that the number is free. */
class ClosedStandardInput {
 public:
  ClosedStandardInput() : former_(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)) {
    ::close(STDIN_FILENO);
  }
  ~ClosedStandardInput() {
    if (former_ >= 0) {
      ::dup2(former_, STDIN_FILENO);
      ::close(former_);
    } else {
      ::close(STDIN_FILENO);
    }
  }
  ClosedStandardInput(const ClosedStandardInput&) = delete;
  ClosedStandardInput& operator=(const ClosedStandardInput&) = delete;

 private:
  int former_;
};

class ReportLockOfDescriptorZero : public ReportTest {
 protected:
  /** Expects that the report has that descriptor, and that its lock works. */
  void expectLocks(Report& report) {
    EXPECT_THAT(descriptorsBelow(lockFile()), ElementsAre(0));
    EXPECT_THAT(report.acquireWriteLock(false), Succeeds());
    EXPECT_FALSE(lockIsFree());
    EXPECT_THAT(report.touch(), Succeeds());
  }

  /** Expects the same of @p report, and that its end releases and closes the lock. */
  void expectLetsGo(ReportPtr report) {
    ASSERT_NE(report, nullptr);
    expectLocks(*report);
    FlockSpy spy;
    report.reset();
    EXPECT_THAT(spy.take(), ElementsAre(LOCK_UN));
    EXPECT_THAT(descriptorsBelow(root_), IsEmpty());
    EXPECT_THAT(log_.take(), IsEmpty());
  }

  const ClosedStandardInput closed_;
};

TEST_F(ReportLockOfDescriptorZero, IsReleasedAndClosedAfterCreation) {
  expectLetsGo(create());
}

TEST_F(ReportLockOfDescriptorZero, IsReleasedAndClosedAfterOpening) {
  createAndClose();
  expectLetsGo(open());
}

TEST_F(ReportLockOfDescriptorZero, IsClosedByDeletion) {
  const ReportPtr report = create();
  ASSERT_NE(report, nullptr);
  expectLocks(*report);
  EXPECT_THAT(report->deleteReport(), Succeeds());
  EXPECT_THAT(descriptorsBelow(root_), IsEmpty());
  EXPECT_THAT(report->acquireReadLock(false),
              Refuses("Unable to acquire read lock for report with no valid lock file descriptor"));
}

}  // namespace
}  // namespace KELP::Diagnostic
