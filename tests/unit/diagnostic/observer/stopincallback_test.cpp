#include "unit/diagnostic/observer/observerfixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;
namespace fs = std::filesystem;

/** What the client does, once, in its callback: a stop and so many more calls, start and stop in
 *  turn. */
struct Calls {
  const char* what;
  int starts;
  bool endsStarted;
};

void PrintTo(const Calls& calls, std::ostream* out) {
  *out << calls.what;
}

/** A client that stops the observer from inside its callback, while more events are on the way. */
class ObserverStopInCallback : public ObserverTest, public testing::WithParamInterface<Calls> {
 protected:
  ObserverStopInCallback() {
    for (int i = 1; i <= 3; ++i) {
      makeReport(idText(i));
    }
  }

  /** Makes the calls at the first event, after @p change. */
  void actAtFirst(const std::function<void()>& change) {
    recorder_.onEach([this, change](const ReportEvent&) {
      if (!called_.exchange(true)) {
        change();
        atAction_ = existingReports();
        observer().stop();
        for (int i = 0; i < GetParam().starts; ++i) {
          observer().start();
          if (i + 1 < GetParam().starts || !GetParam().endsStarted) {
            observer().stop();
          }
        }
        acted_.open();
      }
    });
  }

  /** Expects that @p first was told, then a start's announcements for each start, and nothing
   *  else, now or later. */
  void expectToldAndState(const ReportEvent& first) {
    acted_.pass();
    Events expected{first};
    for (int i = 0; i < GetParam().starts; ++i) {
      expected.insert(expected.end(), atAction_.begin(), atAction_.end());
    }
    if (GetParam().endsStarted) {
      EXPECT_EQ(eventsUntilNow(), expected);
      fs::remove_all(dirOf(idText(2)));
      EXPECT_THAT(eventsUntilNow(), ElementsAre(removed(idText(2))));
      observer().stop();
      EXPECT_EQ(resourcesAfterReturnTo(before_), before_);
    } else {
      EXPECT_EQ(resourcesAfterReturnTo(before_), before_);
      EXPECT_EQ(withoutSentinels(recorder_.take()), expected);
      observer().start();
      EXPECT_EQ(recorder_.take(), existingReports());
    }
  }

  std::atomic<bool> called_{false};
  Gate acted_;  ///< Open when the calls have been made.
  Events atAction_;
};

TEST_P(ObserverStopInCallback, OnTheDeliveringThreadEndsWhatIsOnTheWay) {
  observer().start();
  static_cast<void>(recorder_.take());
  const fs::path fourth = makeReportElsewhere(idText(4));
  const fs::path fifth = makeReportElsewhere(idText(5));
  whileDelivering([&] {
    actAtFirst([] {});
    link(fourth, idText(4));
    link(fifth, idText(5));
    storeText(metadataOf(idText(1)), "key", "value");
    fs::remove_all(dirOf(idText(3)));
  });
  expectToldAndState(added(idText(4)));
}

TEST_P(ObserverStopInCallback, InsideStartEndsTheAnnouncements) {
  const fs::path fourth = makeReportElsewhere(idText(4));
  const ReportEvent first = existingReports().front();
  actAtFirst([&] {
    storeText(metadataOf(first.id), "key", "value");
    link(fourth, idText(4));
  });
  observer().start();
  expectToldAndState(first);
}

TEST_P(ObserverStopInCallback, InsideStartEndsTheEventThatIsJustBeingDelivered) {
  const ReportEvent first = existingReports().front();
  const std::size_t idle = waitingThreads();
  actAtFirst([&] {
    link(makeBareElsewhere(idText(4)), idText(4));
    waitForWaitingThreads(idle + 1);  // The delivering thread, for the end of this callback.
  });
  observer().start();
  expectToldAndState(first);
}

TEST_P(ObserverStopInCallback, MayBeFollowedAtOnceByTheDestruction) {
  for (int i = 0; i < 20; ++i) {
    observer().start();
    static_cast<void>(recorder_.take());
    called_ = false;
    actAtFirst([] {});
    const std::string id = idText(100 + i);
    link(makeBareElsewhere(id), id);
    recorder_.waitFor(added(id));
    observer_.emplace(std::make_shared<DiagnosticData>(root_), recorder_.callback(), &client_);
    recorder_.onEach({});
  }
  EXPECT_EQ(resourcesAfterReturnTo(before_), before_);
}

INSTANTIATE_TEST_SUITE_P(All, ObserverStopInCallback,
                         testing::Values(Calls{"Stop", 0, false}, Calls{"StopAndStart", 1, true},
                                         Calls{"StopStartAndStop", 1, false},
                                         Calls{"StopAndStartTwice", 2, true}),
                         [](const auto& all) { return all.param.what; });

class ObserverStoppedByItsClient : public ObserverTest {};

TEST_F(ObserverStoppedByItsClient, LogsTheWatchesInsideTheCallback) {
  makeReport(idText(1));
  observer().start();
  static_cast<void>(recorder_.take());
  std::vector<std::string> expected;
  std::vector<LogLine> lines;
  recorder_.onEach([&](const ReportEvent&) {
    expected = removalTexts();
    observer().stop();
    lines = log_.take();
    observer().stop();
  });
  link(makeBareElsewhere(idText(2)), idText(2));
  EXPECT_EQ(resourcesAfterReturnTo(before_), before_);
  observer().stop();
  EXPECT_EQ(sortedTexts(lines), expected);
  EXPECT_EQ(expected.size(), 2U);
  EXPECT_THAT(log_.take(), IsEmpty());
  EXPECT_THAT(recorder_.take(), ElementsAre(added(idText(2))));
}

TEST_F(ObserverStoppedByItsClient, WhenAReportIsRemoved) {
  makeReport(idText(1));
  makeReport(idText(2));
  observer().start();
  const auto expected = removalTexts();
  static_cast<void>(recorder_.take());
  recorder_.onEach([&](const ReportEvent&) { observer().stop(); });
  fs::remove_all(dirOf(idText(1)));
  EXPECT_EQ(resourcesAfterReturnTo(before_), before_);
  EXPECT_THAT(recorder_.take(), ElementsAre(removed(idText(1))));
  EXPECT_EQ(sortedTexts(log_.take()), expected) << "the removed report is watched until then";
}

TEST_F(ObserverStoppedByItsClient, AndStartedAnewWhenAReportIsRemovedKeepsTheNewWatch) {
  makeReport(idText(1));
  observer().start();
  static_cast<void>(recorder_.take());
  const fs::path again = makeReportElsewhere(idText(1));
  recorder_.onEach([&](const ReportEvent& event) {
    if (event == removed(idText(1))) {
      observer().stop();
      fs::remove_all(dirOf(idText(1)));
      linkUnseen(again, idText(1));
      observer().start();
    }
  });
  fs::remove(metadataOf(idText(1)));
  recorder_.waitFor(existing(idText(1)));
  EXPECT_THAT(eventsUntilNow(), ElementsAre(removed(idText(1)), existing(idText(1))));
  EXPECT_TRUE(isWatched(again));
  writeFile(again / "metadata.db", "");
  writeFile(again / "metadata.db", "text");
  EXPECT_FALSE(eventsUntilNow().empty());
}

TEST_F(ObserverStoppedByItsClient, IsNotStoppedForOthersBeforeTheCallbackIsOver) {
  Gate gate;
  std::atomic<bool> over{false};
  recorder_.onEach([&](const ReportEvent&) {
    observer().stop();
    gate.pass();
    over = true;
  });
  observer().start();
  link(makeBareElsewhere(idText(1)), idText(1));
  gate.waitForArrival();
  bool overAtReturn = false;
  Runner stopping([&] {
    observer().stop();
    overAtReturn = over;
  });
  stopping.waitUntilAsleep();
  EXPECT_FALSE(stopping.isDone());
  gate.open();
  stopping.join();
  EXPECT_TRUE(overAtReturn);
}

}  // namespace
}  // namespace KELP::Diagnostic
