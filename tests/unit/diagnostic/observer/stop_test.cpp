#include "unit/diagnostic/observer/observerfixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

class ObserverStop : public ObserverTest {
 protected:
  /** Expects that nothing of the observer is left, and that changes are not noticed. */
  void expectStopped() {
    EXPECT_EQ(resourcesAfterReturnTo(before_), before_);
    EXPECT_THAT(inotifyInstances(), IsEmpty());
    static_cast<void>(recorder_.take());
    makeReport(idText(90));
    fs::remove_all(dirOf(idText(90)));
    EXPECT_THAT(recorder_.take(), IsEmpty());
  }
};

TEST_F(ObserverStop, LogsEachReportsWatchWithItsDescriptor) {
  for (int i = 0; i < 5; ++i) {
    makeReport(idText(i));
  }
  observer().start();
  fs::create_directory(dirOf(idText(5)));
  EXPECT_EQ(eventsUntilNow().size(), 5U);
  const auto expected = removalTexts();
  ASSERT_EQ(expected.size(), 7U) << "five reports, a directory and the sentinel";
  observer().stop();
  EXPECT_EQ(sortedTexts(log_.take()), expected);
  expectStopped();
}

TEST_F(ObserverStop, UsesTheExactLine) {
  makeReport(idText(1));
  observer().start();
  ASSERT_EQ(reportWatches(), std::vector<int>{2}) << "the second watch of the instance";
  observer().stop();
  EXPECT_EQ(log_.take(),
            (std::vector<LogLine>{{3, "diagnosticdata", "Removing subfile watcher 2"}}));
}

TEST_F(ObserverStop, LogsNothingWithoutReports) {
  observer().start();
  observer().stop();
  EXPECT_THAT(log_.take(), IsEmpty());
  expectStopped();
}

TEST_F(ObserverStop, LogsNothingForReportsThatAreGone) {
  makeReport(idText(1));
  observer().start();
  fs::remove_all(dirOf(idText(1)));
  EXPECT_THAT(eventsUntilNow(), ElementsAre(existing(idText(1)), removed(idText(1))));
  const std::vector<int> sentinels = reportWatches();
  ASSERT_EQ(sentinels.size(), 1U);
  observer().stop();
  EXPECT_EQ(log_.take(), std::vector<LogLine>{removalLine(sentinels[0])});
}

TEST_F(ObserverStop, LogsAWatchThatCouldNotBeMade) {
  observer().start();
  observer().handlePossibleNewReport(id_, EventType::REPORT_ADDED);
  EXPECT_THAT(reportWatches(), IsEmpty());
  observer().stop();
  EXPECT_EQ(log_.take(), std::vector<LogLine>{removalLine(-1)});
}

TEST_F(ObserverStop, WhenStoppedDoesNothing) {
  observer().stop();
  EXPECT_THAT(log_.take(), IsEmpty());
  makeReport(idText(1));
  observer().start();
  observer().stop();
  EXPECT_EQ(log_.take().size(), 1U);
  observer().stop();
  observer().clearObservers();
  EXPECT_THAT(log_.take(), IsEmpty());
  expectStopped();
}

TEST_F(ObserverStop, HasASecondName) {
  makeReport(idText(1));
  observer().start();
  const auto expected = removalTexts();
  observer().clearObservers();
  EXPECT_EQ(sortedTexts(log_.take()), expected);
  expectStopped();
}

TEST_F(ObserverStop, IsPartOfTheDestruction) {
  makeReport(idText(1));
  observer().start();
  const auto expected = removalTexts();
  observer_.reset();
  EXPECT_EQ(sortedTexts(log_.take()), expected);
  expectStopped();
}

TEST_F(ObserverStop, OfAStoppedObserverByItsDestructionLogsNothing) {
  makeReport(idText(1));
  observer().start();
  observer().stop();
  static_cast<void>(log_.take());
  observer_.reset();
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ObserverStop, KeepsTheClientsCallbackAndTheDestructionReleasesIt) {
  auto captured = std::make_shared<int>();
  DiagnosticDataObserver::Callback callback = [captured](const ReportUuid&, EventType, void*) {};
  {
    DiagnosticDataObserver other(std::make_shared<DiagnosticData>(root_), std::move(callback),
                                 nullptr);
    other.start();
    other.stop();
    EXPECT_EQ(captured.use_count(), 2);
  }
  EXPECT_EQ(captured.use_count(), 1);
}

TEST_F(ObserverStop, ReturnsAllDescriptorsAndThreadsEachTime) {
  makeReport(idText(1));
  for (int i = 0; i < 20; ++i) {
    observer().start();
    EXPECT_GT(resourcesNow().descriptors, before_.descriptors);
    EXPECT_GT(resourcesNow().threads, before_.threads);
    observer().stop();
    EXPECT_EQ(resourcesNow().descriptors, before_.descriptors);
  }
  EXPECT_EQ(resourcesAfterReturnTo(before_), before_);
}

}  // namespace
}  // namespace KELP::Diagnostic
