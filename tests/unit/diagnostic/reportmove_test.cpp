#include "unit/diagnostic/mutators.h"
#include "unit/diagnostic/reportfixture.h"
#include "unit/diagnostic/systemcalls.h"

#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;

static_assert(!std::is_copy_constructible_v<DiagnosticReport>);
static_assert(!std::is_copy_assignable_v<DiagnosticReport>);
static_assert(std::is_nothrow_move_constructible_v<DiagnosticReport>);
static_assert(std::is_nothrow_move_assignable_v<DiagnosticReport>);

/** Both forms of a move, from the source of the fixture. */
enum class Form { Construction, Assignment };

class ReportMove : public ReportTest, public testing::WithParamInterface<Form> {
 protected:
  /** What the report in source_ is moved to. It must end before source_ does, or be done with. */
  [[nodiscard]] ReportPtr moved() {
    if (GetParam() == Form::Construction) {
      return std::make_unique<DiagnosticReport>(std::move(*source_));
    }
    auto target = std::make_unique<DiagnosticReport>();
    *target = std::move(*source_);
    return target;
  }

  ReportPtr source_ = create();
};

TEST_P(ReportMove, TakesOverTheReport) {
  const auto target = moved();
  EXPECT_EQ(target->getId(), id_);
  EXPECT_THAT(target->getReportDirPath(), Holds(dir()));
  EXPECT_THAT(target->getDeviceId(), Holds(origin_.deviceId));
  EXPECT_THAT(target->acquireWriteLock(false), Succeeds());
  EXPECT_THAT(target->setDescription("moved"), Succeeds());
  EXPECT_EQ(stored("description"), "moved");
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_P(ReportMove, TakesOverTheWriteLock) {
  ASSERT_THAT(source_->acquireWriteLock(true), Succeeds());
  FlockSpy spy;
  const auto target = moved();
  EXPECT_THAT(target->acquireWriteLock(true), Succeeds());
  EXPECT_THAT(target->touch(), Succeeds());
  EXPECT_THAT(spy.take(), IsEmpty()) << "neither the move nor the lock it brought needs a call";
  EXPECT_FALSE(lockIsFree());
}

TEST_P(ReportMove, TakesOverTheReadLock) {
  ASSERT_THAT(source_->acquireReadLock(true), Succeeds());
  FlockSpy spy;
  const auto target = moved();
  EXPECT_THAT(target->acquireReadLock(true), Succeeds());
  EXPECT_THAT(spy.take(), IsEmpty());
  EXPECT_THAT(target->touch(), Refuses(kNoWriteLock));
}

TEST_P(ReportMove, TakesRootAndStoreFromTheSourceAndNothingElse) {
  ASSERT_THAT(source_->acquireWriteLock(true), Succeeds());
  const auto target = moved();
  EXPECT_EQ(source_->getId(), id_);
  EXPECT_THAT(source_->getReportDirPath(), Holds(std::filesystem::path(kIdText)));
  EXPECT_EQ(source_->getCurrentConsentLevel(), 0) << "there is no store to read";
  EXPECT_THAT(source_->touch(), Refuses(kTouchFailure)) << "locked, but without a store";
  EXPECT_EQ(log_.take(), errorLines({kTouchFailure}));
}

TEST_P(ReportMove, LeavesTheDescriptorToBoth) {
  ASSERT_THAT(source_->acquireWriteLock(true), Succeeds());
  const std::vector<int> before = descriptorsBelow(lockFile());
  ASSERT_EQ(before.size(), 1U);
  const auto target = moved();
  EXPECT_EQ(descriptorsBelow(lockFile()), before);
  EXPECT_THAT(source_->releaseLock(), Succeeds());
  EXPECT_TRUE(lockIsFree()) << "the source let go of the lock of both";
  EXPECT_THAT(target->touch(), Succeeds()) << "which the target does not know";
}

TEST_P(ReportMove, LetsTheSourceReleaseAndCloseWhenItEnds) {
  ASSERT_THAT(source_->acquireWriteLock(true), Succeeds());
  const auto target = moved();
  FlockSpy spy;
  source_.reset();
  EXPECT_THAT(spy.take(), ElementsAre(LOCK_UN));
  EXPECT_THAT(descriptorsBelow(lockFile()), IsEmpty());
  EXPECT_TRUE(lockIsFree());
  EXPECT_EQ(target->getCurrentConsentLevel(), 20) << "the store is the target's";
}

INSTANTIATE_TEST_SUITE_P(Forms, ReportMove, testing::Values(Form::Construction, Form::Assignment),
                         [](const auto& all) {
                           return all.param == Form::Construction ? "Construction" : "Assignment";
                         });

class ReportMoveAssignment : public ReportTest {
 protected:
  ReportPtr source_ = create();
  ReportPtr target_ = create(uuid(kOtherIdText));
  const std::filesystem::path former_ = root_ / kOtherIdText;
};

TEST_F(ReportMoveAssignment, LeavesTheFormerDescriptorOpenAndLocked) {
  ASSERT_THAT(target_->acquireWriteLock(true), Succeeds());
  const std::vector<int> former = descriptorsBelow(former_ / "lock");
  ASSERT_EQ(former.size(), 1U);
  FlockSpy spy;
  *target_ = std::move(*source_);
  EXPECT_THAT(spy.take(), IsEmpty());
  EXPECT_EQ(descriptorsBelow(former_ / "lock"), former);
  const auto other = repository_.openReport(uuid(kOtherIdText));
  ASSERT_NE(other, nullptr);
  EXPECT_THAT(other->acquireWriteLock(false),
              FailsWith(systemCode(EWOULDBLOCK), "Failed acquire write lock for report"));
  target_.reset();
  EXPECT_THAT(other->acquireWriteLock(false),
              FailsWith(systemCode(EWOULDBLOCK), "Failed acquire write lock for report"));
  ASSERT_EQ(::close(former.front()), 0);
  EXPECT_THAT(other->acquireWriteLock(false), Succeeds());
}

TEST_F(ReportMoveAssignment, DropsTheFormerStoreAndLockState) {
  ASSERT_THAT(target_->acquireWriteLock(true), Succeeds());
  const std::vector<int> former = descriptorsBelow(former_ / "lock");
  *target_ = std::move(*source_);
  EXPECT_THAT(descriptorsBelow(former_ / "metadata.db"), IsEmpty());
  EXPECT_EQ(target_->getId(), id_);
  EXPECT_THAT(target_->touch(), Refuses(kNoWriteLock)) << "the source held no lock";
  ASSERT_EQ(former.size(), 1U);
  ::close(former.front());
}

TEST_F(ReportMoveAssignment, ToItselfChangesNothing) {
  DiagnosticReport& same = *source_;
  *source_ = std::move(same);
  EXPECT_THAT(source_->getReportDirPath(), Holds(dir()));
  EXPECT_THAT(source_->acquireWriteLock(false), Succeeds());
  EXPECT_THAT(source_->touch(), Succeeds());
}

}  // namespace
}  // namespace KELP::Diagnostic
