#include "unit/diagnostic/observer/observerfixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
namespace fs = std::filesystem;

/** A client that calls the observer from inside its callback. */
class ObserverCallbackCalls : public ObserverTest {};

TEST_F(ObserverCallbackCalls, AskForTheValidityOfTheReport) {
  makeReport(idText(1));
  std::vector<bool> valid;
  recorder_.onEach([&](const ReportEvent& event) {
    valid.push_back(observer().isValidReport(uuid(event.id.c_str())));
  });
  observer().start();
  fs::remove_all(dirOf(idText(1)));
  EXPECT_THAT(eventsUntilNow(), ElementsAre(existing(idText(1)), removed(idText(1))));
  observer().stop();
  EXPECT_EQ(valid, (std::vector<bool>{true, false, true})) << "the last is the sentinel";
}

TEST_F(ObserverCallbackCalls, AnnounceAnotherReport) {
  makeReport(idText(1));
  linkUnseen(makeBareElsewhere(idText(2)), idText(2));
  linkUnseen(makeBareElsewhere(idText(3)), idText(3));
  recorder_.onEach([&](const ReportEvent& event) {
    observer().handlePossibleNewReport(uuid(event.id.c_str()), EventType::REPORT_ADDED);
    observer().handlePossibleNewReport(uuid(idText(event.type == 0 ? 2 : 3).c_str()),
                                       EventType::REPORT_ADDED);
  });
  observer().start();
  EXPECT_THAT(recorder_.take(),
              ElementsAre(existing(idText(1)), added(idText(2)), added(idText(3))));
  EXPECT_EQ(reportWatches().size(), 3U);
}

TEST_F(ObserverCallbackCalls, AnnounceAnotherReportOnTheDeliveringThread) {
  observer().start();
  linkUnseen(makeBareElsewhere(idText(2)), idText(2));
  recorder_.onEach([&](const ReportEvent&) {
    observer().handlePossibleNewReport(uuid(idText(2).c_str()), EventType::REPORT_UPDATED);
  });
  link(makeBareElsewhere(idText(1)), idText(1));
  EXPECT_THAT(eventsUntilNow(), ElementsAre(added(idText(1)), updated(idText(2))));
}

TEST_F(ObserverCallbackCalls, FindTheRemovedReportStillWatched) {
  makeReport(idText(1));
  observer().start();
  EXPECT_THAT(recorder_.take(), ElementsAre(existing(idText(1))));
  std::vector<bool> watched;
  recorder_.onEach([&](const ReportEvent& event) {
    if (event == removed(idText(1))) {
      watched.push_back(isWatched(dirOf(idText(1))));
      // What is still watched, is no possible new report.
      writeFile(metadataOf(idText(1)), "");
      observer().handlePossibleNewReport(uuid(idText(1).c_str()), EventType::REPORT_ADDED);
      watched.push_back(isWatched(dirOf(idText(1))));
    }
  });
  fs::remove(metadataOf(idText(1)));
  EXPECT_THAT(eventsUntilNow(), ElementsAre(removed(idText(1))));
  EXPECT_EQ(watched, (std::vector<bool>{true, true}));
  EXPECT_FALSE(isWatched(dirOf(idText(1)))) << "once the client has been told";
}

TEST_F(ObserverCallbackCalls, StartWithoutEffect) {
  makeReport(idText(1));
  makeReport(idText(2));
  recorder_.onEach([&](const ReportEvent&) { observer().start(); });
  const Events expected = existingReports();
  observer().start();
  EXPECT_EQ(recorder_.take(), expected);
  link(makeBareElsewhere(idText(3)), idText(3));
  EXPECT_THAT(eventsUntilNow(), ElementsAre(added(idText(3))));
  EXPECT_EQ(inotifyInstances().size(), 1U);
}

TEST_F(ObserverCallbackCalls, ChangeTheReportsAndAreToldOfThat) {
  observer().start();
  recorder_.onEach([&](const ReportEvent& event) {
    if (event == added(idText(1))) {
      writeFile(metadataOf(idText(1)), "text");
    } else if (event == updated(idText(1))) {
      fs::remove_all(directory_ / "bare" / idText(1));
    }
  });
  link(makeBareElsewhere(idText(1)), idText(1));
  recorder_.waitFor(removed(idText(1)));
  EXPECT_THAT(eventsUntilNow(),
              ElementsAre(added(idText(1)), updated(idText(1)), removed(idText(1))));
}

}  // namespace
}  // namespace KELP::Diagnostic
