#include "unit/diagnostic/observer/observerfixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
namespace fs = std::filesystem;

/** Several threads with one observer. */
class ObserverConcurrency : public ObserverTest {
 protected:
  /** Lets the client be in its callback on the delivering thread, until the gate is opened. */
  void enterCallback() {
    recorder_.onEach([this](const ReportEvent&) {
      gate_.pass();
      over_ = true;
    });
    observer().start();
    link(makeBareElsewhere(idText(1)), idText(1));
    gate_.waitForArrival();
  }
  /** Expects that @p call, on another thread, waits for the callback. */
  void expectWaits(const std::function<void()>& call) {
    enterCallback();
    bool overAtReturn = false;
    std::size_t toldAtReturn = 0;
    Runner caller([&] {
      call();
      overAtReturn = over_;
      toldAtReturn = recorder_.all().size();
    });
    for (int i = 2; i < 10; ++i) {  // More events are on the way.
      link(makeBareElsewhere(idText(i)), idText(i));
    }
    caller.waitUntilAsleep();
    EXPECT_FALSE(caller.isDone());
    gate_.open();
    caller.join();
    EXPECT_TRUE(overAtReturn);
    toldAtReturn_ = toldAtReturn;
  }

  Gate gate_;
  std::atomic<bool> over_{false};
  std::size_t toldAtReturn_ = 0;
};

TEST_F(ObserverConcurrency, StopWaitsForTheCallbackAndNoneRunsAfterwards) {
  expectWaits([&] { observer().stop(); });
  EXPECT_EQ(resourcesAfterReturnTo(before_), before_);
  EXPECT_THAT(recorder_.all(), SizeIs(toldAtReturn_));
}

TEST_F(ObserverConcurrency, DestructionWaitsForTheCallbackAndNoneRunsAfterwards) {
  expectWaits([&] { observer_.reset(); });
  EXPECT_EQ(resourcesAfterReturnTo(before_), before_);
  EXPECT_THAT(recorder_.all(), SizeIs(toldAtReturn_));
}

TEST_F(ObserverConcurrency, OtherOperationsWaitForTheCallback) {
  expectWaits([&] { EXPECT_TRUE(observer().isValidReport(uuid(idText(1).c_str()))); });
}

TEST_F(ObserverConcurrency, StartOfAStartedObserverDoesNotWaitForTheCallback) {
  enterCallback();
  observer().start();
  EXPECT_FALSE(over_);
  gate_.open();
  EXPECT_THAT(eventsUntilNow(), ElementsAre(added(idText(1))));
}

TEST_F(ObserverConcurrency, StartOfAnObserverThatIsJustStartingDoesNotWaitForTheCallback) {
  makeReport(idText(1));
  recorder_.onEach([this](const ReportEvent&) { gate_.pass(); });
  Runner starting([&] { observer().start(); });
  gate_.waitForArrival();
  observer().start();
  EXPECT_FALSE(starting.isDone());
  gate_.open();
  starting.join();
  EXPECT_THAT(recorder_.take(), ElementsAre(existing(idText(1))));
}

TEST_F(ObserverConcurrency, EventsWaitForTheEndOfStart) {
  makeReport(idText(1));
  makeReport(idText(2));
  const Events expected = existingReports();
  std::atomic<int> running{0};
  std::atomic<bool> alone{true};
  recorder_.onEach([&](const ReportEvent& event) {
    if (++running != 1) {
      alone = false;
    }
    if (event == expected.front()) {
      link(makeBareElsewhere(idText(3)), idText(3));
    }
    --running;
  });
  observer().start();
  const Events events = eventsUntilNow();
  EXPECT_EQ(events, (Events{expected[0], expected[1], added(idText(3))}));
  EXPECT_TRUE(alone);
}

TEST_F(ObserverConcurrency, StopOfTwoThreadsAtOnceEndsForBoth) {
  makeReport(idText(1));
  for (int i = 0; i < 25; ++i) {
    observer().start();
    const std::string id = idText(100 + i);
    link(makeBareElsewhere(id), id);
    const auto stop = [&] { observer().stop(); };
    Runner first(stop);
    Runner second(stop);
    first.join();
    second.join();
  }
  EXPECT_EQ(resourcesAfterReturnTo(before_), before_);
}

TEST_F(ObserverConcurrency, StartOfTwoThreadsAtOnceAnnouncesOnce) {
  makeReport(idText(1));
  for (int i = 0; i < 25; ++i) {
    const auto start = [&] { observer().start(); };
    Runner first(start);
    Runner second(start);
    first.join();
    second.join();
    EXPECT_THAT(recorder_.take(), ElementsAre(existing(idText(1))));
    EXPECT_EQ(inotifyInstances().size(), 1U);
    observer().stop();
  }
}

TEST_F(ObserverConcurrency, StopOfAThreadMeetsTheStopOfTheCallback) {
  recorder_.onEach([&](const ReportEvent&) { observer().stop(); });
  for (int i = 0; i < 25; ++i) {
    observer().start();
    const std::string id = idText(100 + i);
    link(makeBareElsewhere(id), id);
    observer().stop();
  }
  EXPECT_EQ(resourcesAfterReturnTo(before_), before_);
}

TEST_F(ObserverConcurrency, AllOperationsOfAllThreadsAtOnce) {
  makeReport(idText(1));
  std::atomic<bool> enough{false};
  const auto until = [&](const std::function<void()>& call) {
    return [&enough, call] {
      while (!enough) {
        call();
      }
    };
  };
  {
    Runner starting(until([&] { observer().start(); }));
    Runner stopping(until([&] { observer().stop(); }));
    Runner asking(until([&] {
      static_cast<void>(observer().isValidReport(uuid(idText(1).c_str())));
      observer().handlePossibleNewReport(uuid(idText(1).c_str()), EventType::REPORT_ADDED);
      tellRoot(IN_Q_OVERFLOW);
    }));
    for (int i = 0; i < 100; ++i) {
      writeFile(metadataOf(idText(1)), "");
      link(makeBareElsewhere(idText(100 + i)), idText(100 + i));
    }
    recorder_.waitFor(std::size_t{1});
    enough = true;
  }
  observer().stop();
  EXPECT_EQ(resourcesAfterReturnTo(before_), before_);
}

TEST_F(ObserverConcurrency, DestructionWhileEventsComeIsTheLastOfThem) {
  const fs::path target = makeBareElsewhere("target");
  std::atomic<bool> enough{false};
  Runner writing([&] {
    while (!enough) {
      writeFile(target / "metadata.db", "text");
      writeFile(target / "metadata.db", "");
    }
  });
  for (int i = 0; i < 30; ++i) {
    std::atomic<bool> alive{true};
    std::atomic<int> late{0};
    EventRecorder recorder;
    recorder.onEach([&](const ReportEvent&) { late += alive ? 0 : 1; });
    {
      DiagnosticDataObserver other(std::make_shared<DiagnosticData>(root_), recorder.callback(),
                                   nullptr);
      other.start();
      link(target, idText(i));
      recorder.waitFor(std::size_t{5});
    }
    alive = false;
    EXPECT_THAT(inotifyInstances(), IsEmpty());
    EXPECT_EQ(late, 0);
  }
  enough = true;
}

}  // namespace
}  // namespace KELP::Diagnostic
