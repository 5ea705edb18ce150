#include "unit/diagnostic/observer/observerfixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

static_assert(static_cast<int>(EventType::REPORT_EXISTING) == 0);
static_assert(static_cast<int>(EventType::REPORT_ADDED) == 1);
static_assert(static_cast<int>(EventType::REPORT_UPDATED) == 2);
static_assert(static_cast<int>(EventType::REPORT_REMOVED) == 3);
static_assert(!std::is_polymorphic_v<DiagnosticDataObserver>);
static_assert(!std::is_copy_constructible_v<DiagnosticDataObserver>);
static_assert(!std::is_copy_assignable_v<DiagnosticDataObserver>);

class ObserverStart : public ObserverTest {};

TEST_F(ObserverStart, IsNotPartOfTheConstruction) {
  makeReport(idText(1));
  EXPECT_EQ(resourcesNow(), before_);
  EXPECT_THAT(recorder_.all(), IsEmpty());
}

TEST_F(ObserverStart, AnnouncesAllReportsInTheOrderOfTheListBeforeItReturns) {
  for (int i = 0; i < 30; ++i) {
    makeReport(idText(i));
  }
  const Events expected = existingReports();
  ASSERT_EQ(expected.size(), 30U);
  observer().start();
  EXPECT_EQ(recorder_.take(), expected);
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ObserverStart, CallsTheClientOnTheCallingThreadAndLaterOnAnother) {
  makeReport(idText(1));
  std::vector<std::thread::id> threads;
  recorder_.onEach([&](const ReportEvent&) { threads.push_back(std::this_thread::get_id()); });
  observer().start();
  EXPECT_THAT(eventsUntilNow(), ElementsAre(existing(idText(1))));
  observer().stop();
  ASSERT_EQ(threads.size(), 2U) << "the report and the sentinel";
  EXPECT_EQ(threads[0], std::this_thread::get_id());
  EXPECT_NE(threads[1], std::this_thread::get_id());
}

TEST_F(ObserverStart, PassesNullAsUserDataToo) {
  makeReport(idText(1));
  DiagnosticDataObserver other(std::make_shared<DiagnosticData>(root_), recorder_.callback(),
                               nullptr);
  other.start();
  EXPECT_THAT(recorder_.take(), ElementsAre(ReportEvent{idText(1), 0, nullptr}));
}

TEST_F(ObserverStart, OnAnEmptyRootAnnouncesNothing) {
  observer().start();
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ObserverStart, WhenStartedDoesNothing) {
  makeReport(idText(1));
  observer().start();
  EXPECT_THAT(recorder_.take(), ElementsAre(existing(idText(1))));
  const auto watches = kernelWatches();
  const Resources started = resourcesNow();
  makeReport(idText(2));
  EXPECT_THAT(eventsUntilNow(), testing::Contains(added(idText(2))));
  observer().start();
  EXPECT_EQ(resourcesNow(), started);
  EXPECT_EQ(kernelWatches().size(), watches.size() + 2) << "the new report's and the sentinel's";
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
  makeReport(idText(3));
  const Events events = eventsUntilNow();
  EXPECT_EQ(std::count(events.begin(), events.end(), added(idText(3))), 1);
}

TEST_F(ObserverStart, LeavesOutWhatDoesNotOpen) {
  makeReport(idText(1));
  fs::create_directory(dirOf(idText(2)));
  writeFile(metadataOf(idText(2)), "");
  observer().start();
  EXPECT_THAT(recorder_.take(), ElementsAre(existing(idText(1))));
  EXPECT_EQ(log_.take(), errorLines({"Lock file " + (dirOf(idText(2)) / "lock").string() +
                                     " does not exist for diagnostic report"}));
  EXPECT_FALSE(isWatched(dirOf(idText(2))));
  writeFile(metadataOf(idText(2)), "again");
  EXPECT_THAT(eventsUntilNow(), IsEmpty());
}

TEST_F(ObserverStart, AnnouncesAReportWithTwoNamesOnce) {
  makeReport(idText(1));
  fs::create_directory(root_ / "AB00CD00-0000-4000-8000-000000000001");
  ASSERT_EQ(repository_.getAllReportUuids().size(), 2U);
  observer().start();
  EXPECT_THAT(recorder_.take(), ElementsAre(existing(idText(1))));
  EXPECT_EQ(reportWatches().size(), 1U);
}

TEST_F(ObserverStart, AfterAStopAnnouncesWhatIsThereThen) {
  makeReport(idText(1));
  makeReport(idText(2));
  for (int i = 0; i < 3; ++i) {
    const Events expected = existingReports();
    ASSERT_EQ(expected.size(), 2U);
    observer().start();
    EXPECT_EQ(recorder_.take(), expected);
    EXPECT_EQ(reportWatches().size(), 2U);
    observer().stop();
  }
  fs::remove_all(dirOf(idText(1)));
  makeReport(idText(3));
  const Events expected = existingReports();
  observer().start();
  EXPECT_EQ(recorder_.take(), expected);
  EXPECT_THAT(expected, testing::UnorderedElementsAre(existing(idText(2)), existing(idText(3))));
  fs::remove_all(dirOf(idText(3)));
  EXPECT_THAT(eventsUntilNow(), ElementsAre(removed(idText(3))));
}

TEST_F(ObserverStart, BeginsWithoutAnyWriteInProgress) {
  makeReport(idText(1));
  observer().start();
  tellReport(idText(1), IN_MODIFY, "metadata.db");
  observer().stop();
  observer().start();
  static_cast<void>(recorder_.take());
  tellReport(idText(1), IN_CLOSE_WRITE, "metadata.db");
  EXPECT_THAT(recorder_.take(), IsEmpty());
}

TEST_F(ObserverStart, OfTwoObserversDoesNotDependOnTheOther) {
  makeReport(idText(1));
  EventRecorder others;
  DiagnosticDataObserver other(std::make_shared<DiagnosticData>(root_), others.callback(),
                               &recorder_);
  observer().start();
  other.start();
  EXPECT_THAT(others.take(), ElementsAre(ReportEvent{idText(1), 0, &recorder_}));
  EXPECT_THAT(recorder_.take(), ElementsAre(existing(idText(1))));
  other.stop();
  fs::remove_all(dirOf(idText(1)));
  EXPECT_THAT(eventsUntilNow(), ElementsAre(removed(idText(1))));
  EXPECT_THAT(others.take(), IsEmpty());
}

TEST_F(ObserverStart, KeepsItsShareOfTheRepository) {
  makeReport(idText(1));
  auto data = std::make_shared<DiagnosticData>(root_);
  {
    DiagnosticDataObserver other(data, recorder_.callback(), &client_);
    EXPECT_EQ(data.use_count(), 2);
    const std::weak_ptr<DiagnosticData> watched = data;
    data.reset();
    other.start();
    EXPECT_EQ(watched.use_count(), 1);
    EXPECT_THAT(recorder_.take(), ElementsAre(existing(idText(1))));
    data = watched.lock();
  }
  EXPECT_EQ(data.use_count(), 1);
}

/** A root that cannot be watched, and the system's words for that. */
class ObserverStartWithoutRoot : public ObserverStart {
 protected:
  /** Expects one line and nothing else of a start, and of all that follows. */
  void expectOnlyALine(const fs::path& root, const std::string& reason) {
    DiagnosticDataObserver other(std::make_shared<DiagnosticData>(root), recorder_.callback(),
                                 &client_);
    other.start();
    EXPECT_EQ(log_.take(), errorLines({"Unable to watch " + root.string() + ": " + reason}));
    EXPECT_THAT(kernelWatches(), IsEmpty());
    other.start();
    EXPECT_THAT(log_.take(), IsEmpty()) << "it is started";
    other.stop();
    EXPECT_THAT(log_.take(), IsEmpty());
    EXPECT_THAT(recorder_.take(), IsEmpty());
    EXPECT_EQ(resourcesAfterReturnTo(before_), before_);
  }
};

TEST_F(ObserverStartWithoutRoot, LogsThatItIsNotThere) {
  expectOnlyALine(directory_ / "nowhere", "No such file or directory");
}

TEST_F(ObserverStartWithoutRoot, LogsThatItIsBelowAFile) {
  writeFile(directory_ / "file", "");
  expectOnlyALine(directory_ / "file" / "root", "Not a directory");
}

TEST_F(ObserverStartWithoutRoot, LogsThatALinkEndsNowhere) {
  fs::create_directory_symlink("nowhere", directory_ / "link");
  expectOnlyALine(directory_ / "link", "No such file or directory");
}

TEST_F(ObserverStartWithoutRoot, NoticesTheRootAtTheNextStart) {
  fs::remove(root_);
  observer().start();
  EXPECT_EQ(log_.take(),
            errorLines({"Unable to watch " + root_.string() + ": No such file or directory"}));
  makeReport(idText(1));
  EXPECT_THAT(kernelWatches(), IsEmpty());
  observer().stop();
  EXPECT_THAT(recorder_.take(), IsEmpty());
  observer().start();
  EXPECT_THAT(eventsUntilNow(), ElementsAre(existing(idText(1))));
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ObserverStart, OnAFileInPlaceOfTheRootFindsNothing) {
  fs::remove(root_);
  writeFile(root_, "");
  observer().start();
  observer().stop();
  EXPECT_THAT(recorder_.take(), IsEmpty());
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_F(ObserverStart, FollowsALinkToTheRoot) {
  const fs::path behind = directory_ / "behind";
  fs::rename(root_, behind);
  fs::create_directory_symlink(behind, root_);
  makeReport(idText(1));
  observer().start();
  EXPECT_THAT(eventsUntilNow(), ElementsAre(existing(idText(1))));
}

}  // namespace
}  // namespace KELP::Diagnostic
