#include "unit/diagnostic/reportfixture.h"

#include <diagnostic/diagnosticreport.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::IsEmpty;

class ReportLifecycle : public ReportTest {
 protected:
  ReportLifecycle() { EXPECT_THAT(report_->acquireWriteLock(true), Succeeds()); }

  /** Expects a refusal with its one line, and that nothing was written. */
  template <typename Operation>
  void expectRefused(Operation operation, const std::string& message) {
    store("modified", "1");
    const Tree before = treeOf(root_);
    EXPECT_THAT(operation(), Refuses(message));
    EXPECT_EQ(log_.take(), errorLines({message}));
    EXPECT_EQ(treeOf(root_), before);
  }

  ReportPtr report_ = create();
};

TEST_F(ReportLifecycle, BeginsWithNothingDone) {
  EXPECT_FALSE(report_->isCreationComplete());
  EXPECT_FALSE(report_->isUserInteractionComplete());
  EXPECT_FALSE(report_->isDataCollectionComplete());
  EXPECT_FALSE(report_->isDataPolicyApplied());
  EXPECT_FALSE(report_->isUploadComplete());
  EXPECT_FALSE(report_->canCollectData());
  EXPECT_FALSE(report_->canApplyDataPolicy());
  EXPECT_FALSE(report_->canUpload());
  EXPECT_EQ(report_->getCurrentConsentLevel(), 20);
  EXPECT_EQ(report_->getMaxConsentLevel(), 30);
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ReportLifecycle, GoesThroughAllStagesOnce) {
  EXPECT_THAT(report_->markCreationComplete(), Succeeds());
  EXPECT_TRUE(report_->canCollectData());
  EXPECT_THAT(report_->markUserInteractionComplete(), Succeeds());
  EXPECT_THAT(report_->markDataCollectionComplete(), Succeeds());
  EXPECT_FALSE(report_->canCollectData());
  EXPECT_TRUE(report_->canApplyDataPolicy());
  EXPECT_THAT(report_->markDataPolicyApplied(), Succeeds());
  EXPECT_FALSE(report_->canApplyDataPolicy());
  EXPECT_TRUE(report_->canUpload());
  EXPECT_THAT(report_->markUploadComplete(), Succeeds());
  EXPECT_FALSE(report_->canUpload());
  EXPECT_TRUE(report_->isUploadComplete());
  EXPECT_THAT(log_.take(), IsEmpty());
  expectRefused([&] { return report_->markUploadComplete(); },
                "Current report status does not support marking upload as completed");
}

TEST_F(ReportLifecycle, MarksCreationCompleteOnlyOnce) {
  ASSERT_THAT(report_->markCreationComplete(), Succeeds());
  expectRefused([&] { return report_->markCreationComplete(); },
                "Report creation is already complete");
}

TEST_F(ReportLifecycle, MayCompleteUserInteractionBeforeCreation) {
  EXPECT_THAT(report_->markUserInteractionComplete(), Succeeds());
  EXPECT_THAT(report_->setCurrentConsentLevel(5), Succeeds());
  EXPECT_THAT(report_->setMaxConsentLevel(6), Succeeds());
  ASSERT_THAT(report_->markCreationComplete(), Succeeds());
  expectRefused([&] { return report_->setCurrentConsentLevel(7); },
                "Current report status does not support consent level changes");
  EXPECT_EQ(report_->getCurrentConsentLevel(), 5);
}

TEST_F(ReportLifecycle, MayCompleteCollectionBeforeUserInteraction) {
  expectRefused([&] { return report_->markDataCollectionComplete(); },
                "Current report status does not support marking data collection as completed");
  ASSERT_THAT(report_->markCreationComplete(), Succeeds());
  EXPECT_THAT(report_->markDataCollectionComplete(), Succeeds());
  EXPECT_FALSE(report_->canApplyDataPolicy());
}

TEST_F(ReportLifecycle, FreezesTheMaximumBeforeTheCurrentConsentLevel) {
  ASSERT_THAT(report_->markCreationComplete(), Succeeds());
  expectRefused([&] { return report_->setMaxConsentLevel(1); },
                "Current report status does not support max consent level changes");
  EXPECT_THAT(report_->setCurrentConsentLevel(5), Succeeds());
  ASSERT_THAT(report_->markUserInteractionComplete(), Succeeds());
  expectRefused([&] { return report_->setCurrentConsentLevel(6); },
                "Current report status does not support consent level changes");
  EXPECT_EQ(report_->getCurrentConsentLevel(), 5);
  EXPECT_EQ(report_->getMaxConsentLevel(), 30);
}

TEST_F(ReportLifecycle, KeepsEveryConsentLevelAsGiven) {
  for (const int level : {-1, 0, 31, -2147483647 - 1, 2147483647}) {
    EXPECT_THAT(report_->setCurrentConsentLevel(level), Succeeds());
    EXPECT_EQ(report_->getCurrentConsentLevel(), level);
    EXPECT_EQ(stored("current_consent_level"), std::to_string(level));
    EXPECT_THAT(report_->setMaxConsentLevel(-(level / 2)), Succeeds());
    EXPECT_EQ(report_->getMaxConsentLevel(), -(level / 2));
    EXPECT_EQ(report_->getCurrentConsentLevel(), level);
  }
}

TEST_F(ReportLifecycle, ReadsUnrecordedLevelsAsZero) {
  for (const std::optional<std::string>& text :
       {std::optional<std::string>(), std::optional<std::string>("high"),
        std::optional<std::string>("2147483648"), std::optional<std::string>("")}) {
    store("current_consent_level", text);
    store("max_consent_level", text);
    EXPECT_EQ(report_->getCurrentConsentLevel(), 0);
    EXPECT_EQ(report_->getMaxConsentLevel(), 0);
  }
  const DiagnosticReport nothing;
  EXPECT_EQ(nothing.getCurrentConsentLevel(), 0);
  EXPECT_EQ(nothing.getMaxConsentLevel(), 0);
  EXPECT_FALSE(nothing.isCreationComplete());
  EXPECT_FALSE(nothing.canCollectData());
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ReportLifecycle, OfAnotherObjectIsSeenAtOnce) {
  const auto writer = std::move(report_);
  const auto reader = [&] {
    EXPECT_THAT(writer->releaseLock(), Succeeds());
    return open();
  }();
  ASSERT_THAT(writer->acquireWriteLock(true), Succeeds());
  ASSERT_THAT(writer->markCreationComplete(), Succeeds());
  EXPECT_TRUE(reader->isCreationComplete());
  EXPECT_TRUE(reader->canCollectData());
  ASSERT_THAT(writer->setCurrentConsentLevel(10), Succeeds());
  EXPECT_EQ(reader->getCurrentConsentLevel(), 10);
}

}  // namespace
}  // namespace KELP::Diagnostic
