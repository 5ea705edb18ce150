#include "unit/diagnostic/reportfixture.h"
#include "unit/diagnostic/systemcalls.h"

#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;

using Result = DiagnosticReport::Result;
using Acquire = Result (DiagnosticReport::*)(bool);

/** One of the two kinds of lock. */
struct Kind {
  std::string name;
  Acquire acquire;
  Acquire other;
  int operation;
  std::string failure;
  std::string noDescriptor;
};

void PrintTo(const Kind& kind, std::ostream* out) {
  *out << kind.name;
}

const std::vector<Kind>& kinds() {
  static const std::vector<Kind> both{
      {"Read", &DiagnosticReport::acquireReadLock, &DiagnosticReport::acquireWriteLock, LOCK_SH,
       "Failed acquire read lock for report",
       "Unable to acquire read lock for report with no valid lock file descriptor"},
      {"Write", &DiagnosticReport::acquireWriteLock, &DiagnosticReport::acquireReadLock, LOCK_EX,
       "Failed acquire write lock for report",
       "Unable to acquire write lock for report with no valid lock file descriptor"}};
  return both;
}

const char* const kNoLocksText = ". errno = 37 (No locks available)";
const char* const kWouldBlockText = ". errno = 11 (Resource temporarily unavailable)";

class ReportLock : public ReportTest {
 protected:
  ReportPtr report_ = create();
  FlockSpy spy_;
};

class ReportLockOfKind : public ReportLock, public testing::WithParamInterface<Kind> {
 protected:
  [[nodiscard]] Result acquire(DiagnosticReport& report, bool wait) const {
    return (report.*GetParam().acquire)(wait);
  }
};

TEST_P(ReportLockOfKind, NeedsADescriptorAndLogsNothingWithoutOne) {
  DiagnosticReport report;
  EXPECT_THAT(acquire(report, false), Refuses(GetParam().noDescriptor));
  EXPECT_THAT(acquire(report, true), Refuses(GetParam().noDescriptor));
  EXPECT_THAT(log_.take(), IsEmpty());
  EXPECT_THAT(spy_.take(), IsEmpty());
}

TEST_P(ReportLockOfKind, IsAskedForAsGiven) {
  EXPECT_THAT(acquire(*report_, true), Succeeds());
  EXPECT_THAT(report_->releaseLock(), Succeeds());
  EXPECT_THAT(acquire(*report_, false), Succeeds());
  EXPECT_THAT(spy_.take(),
              ElementsAre(GetParam().operation, LOCK_UN, GetParam().operation | LOCK_NB));
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_P(ReportLockOfKind, IsAskedForOnceWhenHeldAlready) {
  ASSERT_THAT(acquire(*report_, true), Succeeds());
  EXPECT_THAT(acquire(*report_, true), Succeeds());
  EXPECT_THAT(acquire(*report_, false), Succeeds());
  EXPECT_THAT(spy_.take(), ElementsAre(GetParam().operation));
}

TEST_P(ReportLockOfKind, IsConvertedByAnotherCall) {
  ASSERT_THAT((*report_.*GetParam().other)(true), Succeeds());
  EXPECT_THAT(acquire(*report_, false), Succeeds());
  EXPECT_THAT((*report_.*GetParam().other)(true), Succeeds());
  const int other = GetParam().operation == LOCK_SH ? LOCK_EX : LOCK_SH;
  EXPECT_THAT(spy_.take(), ElementsAre(other, GetParam().operation | LOCK_NB, other));
}

TEST_P(ReportLockOfKind, FailureIsLoggedWithNumberAndText) {
  for (const bool wait : {false, true}) {
    spy_.failNext({ENOLCK});
    EXPECT_THAT(acquire(*report_, wait), FailsWith(systemCode(ENOLCK), GetParam().failure));
    EXPECT_EQ(log_.take(), errorLines({GetParam().failure + kNoLocksText}));
  }
}

TEST_P(ReportLockOfKind, FailureLeavesAnUnlockedReportUnlocked) {
  spy_.failNext({ENOLCK});
  ASSERT_FALSE(acquire(*report_, true).has_value());
  static_cast<void>(spy_.take());
  EXPECT_THAT(report_->releaseLock(), Succeeds());
  EXPECT_THAT(spy_.take(), IsEmpty()) << "there is nothing to release";
}

TEST_P(ReportLockOfKind, FailedConversionLeavesTheStateAsItWas) {
  ASSERT_THAT((*report_.*GetParam().other)(true), Succeeds());
  spy_.failNext({ENOLCK});
  ASSERT_FALSE(acquire(*report_, true).has_value());
  static_cast<void>(spy_.take());
  EXPECT_THAT((*report_.*GetParam().other)(true), Succeeds());
  EXPECT_THAT(spy_.take(), IsEmpty()) << "the other lock still counts as held";
}

TEST_P(ReportLockOfKind, WaitsThroughASignal) {
  spy_.failNext({EINTR, EINTR});
  EXPECT_THAT(acquire(*report_, true), Succeeds());
  EXPECT_THAT(spy_.take(),
              ElementsAre(GetParam().operation, GetParam().operation, GetParam().operation));
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_P(ReportLockOfKind, FailsAtOnceWhileAWriterHoldsTheReport) {
  const auto writer = open();
  ASSERT_THAT(writer->acquireWriteLock(true), Succeeds());
  EXPECT_THAT(acquire(*report_, false), FailsWith(systemCode(EWOULDBLOCK), GetParam().failure));
  EXPECT_EQ(log_.take(), errorLines({GetParam().failure + kWouldBlockText}));
}

TEST_P(ReportLockOfKind, IsReleasedByTheDestructorWithItsDescriptor) {
  ASSERT_THAT(acquire(*report_, true), Succeeds());
  static_cast<void>(spy_.take());
  report_.reset();
  EXPECT_THAT(spy_.take(), ElementsAre(LOCK_UN));
  EXPECT_THAT(descriptorsBelow(root_), IsEmpty());
  EXPECT_TRUE(lockIsFree());
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_P(ReportLockOfKind, ThatCannotBeReleasedLetsTheDestructorCloseItsDescriptorAllTheSame) {
  ASSERT_THAT(acquire(*report_, true), Succeeds());
  static_cast<void>(spy_.take());
  spy_.failNext({ENOLCK});
  report_.reset();
  EXPECT_THAT(spy_.take(), ElementsAre(LOCK_UN));
  EXPECT_EQ(log_.take(),
            errorLines({std::string("Failed to release lock for report") + kNoLocksText}));
  EXPECT_THAT(descriptorsBelow(root_), IsEmpty());
  EXPECT_TRUE(lockIsFree()) << "it ends with the descriptor";
}

INSTANTIATE_TEST_SUITE_P(Kinds, ReportLockOfKind, testing::ValuesIn(kinds()),
                         [](const auto& all) { return all.param.name; });

TEST_F(ReportLock, IsSharedByReaders) {
  const auto other = open();
  EXPECT_THAT(report_->acquireReadLock(false), Succeeds());
  EXPECT_THAT(other->acquireReadLock(false), Succeeds());
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ReportLock, OfAReaderKeepsWritersOut) {
  const auto reader = open();
  ASSERT_THAT(reader->acquireReadLock(true), Succeeds());
  EXPECT_THAT(report_->acquireWriteLock(false),
              FailsWith(systemCode(EWOULDBLOCK), "Failed acquire write lock for report"));
  EXPECT_EQ(log_.take(),
            errorLines({std::string("Failed acquire write lock for report") + kWouldBlockText}));
  ASSERT_THAT(reader->releaseLock(), Succeeds());
  EXPECT_THAT(report_->acquireWriteLock(false), Succeeds());
}

TEST_F(ReportLock, OfAWriterIsLeftToReadersByConversion) {
  const auto reader = open();
  ASSERT_THAT(report_->acquireWriteLock(true), Succeeds());
  ASSERT_THAT(report_->acquireReadLock(true), Succeeds());
  EXPECT_THAT(reader->acquireReadLock(false), Succeeds());
  EXPECT_THAT(report_->touch(), Refuses("Cannot modify report without a write lock"));
}

TEST_F(ReportLock, ThatIsNotHeldIsReleasedWithoutACall) {
  EXPECT_THAT(report_->releaseLock(), Succeeds());
  DiagnosticReport unattached;
  EXPECT_THAT(unattached.releaseLock(), Succeeds());
  EXPECT_THAT(spy_.take(), IsEmpty());
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ReportLock, IsReleasedOnce) {
  ASSERT_THAT(report_->acquireWriteLock(true), Succeeds());
  EXPECT_THAT(report_->releaseLock(), Succeeds());
  EXPECT_THAT(report_->releaseLock(), Succeeds());
  EXPECT_THAT(spy_.take(), ElementsAre(LOCK_EX, LOCK_UN));
  EXPECT_TRUE(lockIsFree());
  EXPECT_THAT(report_->touch(), Refuses("Cannot modify report without a write lock"));
}

TEST_F(ReportLock, StaysHeldWhenItsReleaseFails) {
  ASSERT_THAT(report_->acquireWriteLock(true), Succeeds());
  spy_.failNext({ENOLCK});
  EXPECT_THAT(report_->releaseLock(),
              FailsWith(systemCode(ENOLCK), "Failed release lock for report"));
  EXPECT_EQ(log_.take(),
            errorLines({std::string("Failed to release lock for report") + kNoLocksText}));
  static_cast<void>(spy_.take());
  EXPECT_THAT(report_->acquireWriteLock(false), Succeeds());
  EXPECT_THAT(spy_.take(), IsEmpty()) << "the write lock still counts as held";
  EXPECT_THAT(report_->touch(), Succeeds());
  EXPECT_THAT(report_->releaseLock(), Succeeds()) << "and can be released again";
  EXPECT_THAT(spy_.take(), ElementsAre(LOCK_UN));
}

TEST_F(ReportLock, NumbersAreThoseOfTheRealCall) {
  ASSERT_THAT(report_->acquireReadLock(true), Succeeds());
  const std::vector<int> descriptors = descriptorsBelow(lockFile());
  ASSERT_EQ(descriptors.size(), 1U);
  ASSERT_EQ(::close(descriptors.front()), 0);
  const std::string text = ". errno = 9 (Bad file descriptor)";
  EXPECT_THAT(report_->acquireWriteLock(false),
              FailsWith(systemCode(EBADF), "Failed acquire write lock for report"));
  EXPECT_THAT(report_->releaseLock(),
              FailsWith(systemCode(EBADF), "Failed release lock for report"));
  EXPECT_EQ(log_.take(), errorLines({"Failed acquire write lock for report" + text,
                                     "Failed to release lock for report" + text}));
}

TEST_F(ReportLock, ThatIsNotHeldLetsTheDestructorOnlyCloseTheDescriptor) {
  ASSERT_EQ(descriptorsBelow(lockFile()).size(), 1U);
  report_.reset();
  EXPECT_THAT(spy_.take(), IsEmpty());
  EXPECT_THAT(descriptorsBelow(root_), IsEmpty());
}

TEST_F(ReportLock, OfAReportThatEndsGoesToTheNext) {
  const auto next = open();
  ASSERT_THAT(report_->acquireWriteLock(true), Succeeds());
  report_.reset();
  EXPECT_THAT(next->acquireWriteLock(false), Succeeds());
}

TEST_F(ReportLock, LeavesTheReportOnDiskAsItIs) {
  const Tree before = treeOf(root_);
  ASSERT_THAT(report_->acquireReadLock(true), Succeeds());
  ASSERT_THAT(report_->acquireWriteLock(true), Succeeds());
  ASSERT_THAT(report_->releaseLock(), Succeeds());
  EXPECT_EQ(treeOf(root_), before);
}

}  // namespace
}  // namespace KELP::Diagnostic
