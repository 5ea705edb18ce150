#include "unit/diagnostic/limits.h"
#include "unit/diagnostic/mutators.h"
#include "unit/diagnostic/reportfixture.h"
#include "unit/diagnostic/systemcalls.h"

#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;

class ReportTouch : public ReportTest {
 protected:
  ReportTouch() { store("modified", "1"); }

  /** Expects that the touch fails so, with its one line, and writes nothing. */
  void expectRefused(const std::string& message) {
    const Tree before = treeOf(root_);
    EXPECT_THAT(report_->touch(), Refuses(message));
    EXPECT_EQ(log_.take(), errorLines({message}));
    EXPECT_EQ(treeOf(root_), before);
  }

  FakeClock clock_;
  ReportPtr report_ = create();
};

TEST_F(ReportTouch, NeedsALock) {
  expectRefused(kNoWriteLock);
}

TEST_F(ReportTouch, IsNotSatisfiedWithAReadLock) {
  ASSERT_THAT(report_->acquireReadLock(true), Succeeds());
  expectRefused(kNoWriteLock);
}

TEST_F(ReportTouch, NeedsTheLockNow) {
  ASSERT_THAT(report_->acquireWriteLock(true), Succeeds());
  ASSERT_THAT(report_->releaseLock(), Succeeds());
  expectRefused(kNoWriteLock);
}

TEST_F(ReportTouch, OfAReportOfNothingFailsForWantOfALock) {
  DiagnosticReport report;
  EXPECT_THAT(report.touch(), Refuses(kNoWriteLock));
  EXPECT_EQ(log_.take(), errorLines({kNoWriteLock}));
}

TEST_F(ReportTouch, StampsTheCurrentSecondAndWritesNothingElse) {
  const std::size_t before = recordCount();
  ASSERT_THAT(report_->acquireWriteLock(true), Succeeds());
  EXPECT_THAT(report_->touch(), Succeeds());
  EXPECT_THAT(recordsSince(before), ElementsAre(StoreRecord{"modified", "1700000000"}));
  EXPECT_EQ(report_->getModifiedTime(), clock_.seconds());
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ReportTouch, WritesTheSameValueTwiceInASecond) {
  const std::size_t before = recordCount();
  ASSERT_THAT(report_->acquireWriteLock(true), Succeeds());
  EXPECT_THAT(report_->touch(), Succeeds());
  EXPECT_THAT(report_->touch(), Succeeds());
  const StoreRecord stamp{"modified", "1700000000"};
  EXPECT_THAT(recordsSince(before), ElementsAre(stamp, stamp));
}

TEST_F(ReportTouch, FailsWhenTheMetadataWasRemoved) {
  ASSERT_THAT(report_->acquireWriteLock(true), Succeeds());
  std::filesystem::remove(metadataFile());
  expectRefused(kTouchFailure);
}

TEST_F(ReportTouch, FailsWhenTheMetadataWasDamaged) {
  ASSERT_THAT(report_->acquireWriteLock(true), Succeeds());
  std::filesystem::remove(metadataFile());
  writeFile(metadataFile(), "this is no store");
  expectRefused(kTouchFailure);
}

TEST_F(ReportTouch, LooksForTheLockBeforeItWrites) {
  std::filesystem::remove(metadataFile());
  expectRefused(kNoWriteLock);
}

TEST_F(ReportTouch, FailsWhenTheMetadataCannotGrow) {
  ASSERT_THAT(report_->acquireWriteLock(true), Succeeds());
  const FileSizeLimit full(std::filesystem::file_size(metadataFile()));
  expectRefused(kTouchFailure);
}

}  // namespace
}  // namespace KELP::Diagnostic
