// An observer that is stopped, destroyed or started again while it calls its client, with more to
// tell all the time.

#include "integration/observer/observerfixture.h"
#include "integration/observer/producer.h"
#include "unit/diagnostic/disk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <iterator>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::IsEmpty;

/** How often the observer is stopped. */
constexpr int kRounds = 200;

/** How a client ends an observer. */
struct Ending {
  const char* name;
  std::function<void(std::unique_ptr<DiagnosticDataObserver>&)> end;
};

std::ostream& operator<<(std::ostream& out, const Ending& ending) {
  return out << ending.name;
}

class ObserverUnderLoad : public ObserverTest {
 protected:
  ObserverUnderLoad() {
    one_.begin("churn");
    two_.begin("churn");
  }

  void endLoad() {
    one_.end();
    two_.end();
  }

  Producer one_{root_};
  Producer two_{root_};
};

class EndedObserver : public ObserverUnderLoad, public testing::WithParamInterface<Ending> {};

TEST_P(EndedObserver, CallsNobodyAfterwards) {
  std::atomic<bool> isRunning = false;
  std::atomic<int> late = 0;
  std::unique_ptr<Observer> former;  // What was stopped stays, with enough to tell of.
  for (int round = 0; round < kRounds; ++round) {
    const auto isEnded = std::make_shared<std::atomic<bool>>(false);
    const auto client = [&, isEnded, starter = std::this_thread::get_id()](const auto&...) {
      if (std::this_thread::get_id() == starter) return;
      isRunning = true;
      std::this_thread::sleep_for(std::chrono::microseconds(200));
      late += *isEnded ? 1 : 0;
      isRunning = false;
    };
    auto observer = std::make_unique<Observer>(repository_, client, nullptr);
    observer->start();
    while (!isRunning) {
      std::this_thread::yield();
    }
    GetParam().end(observer);
    EXPECT_FALSE(isRunning) << "a callback runs on";
    *isEnded = true;
    former = std::move(observer);
  }
  endLoad();
  EXPECT_EQ(late, 0);
}

INSTANTIATE_TEST_SUITE_P(
    , EndedObserver,
    testing::Values(Ending{"stop", [](auto& observer) { observer->stop(); }},
                    Ending{"clearObservers", [](auto& observer) { observer->clearObservers(); }},
                    Ending{"destroy", [](auto& observer) { observer.reset(); }}),
    [](const auto& test) { return test.param.name; });

/** Begins anew inside the callback, whenever told to and not doing so already. */
class RestartedObserver : public ObserverUnderLoad {
 protected:
  RestartedObserver() {
    recorder_.setHook([this](const std::string&, EventType type) {
      if (!isToRestart_(type) || isRestarting_) return;
      isRestarting_ = true;
      observer_->stop();
      recorder_.disbelieve();
      observer_->start();
      const std::vector<std::string> directories = namesIn(root_);
      overlooked_ = difference({directories.begin(), directories.end()}, recorder_.believed());
      isRestarting_ = false;
      ++restarts_;
    });
  }

  static Ids difference(const Ids& all, const Ids& without) {
    Ids rest;
    std::ranges::set_difference(all, without, std::inserter(rest, rest.end()));
    return rest;
  }

  std::function<bool(EventType)> isToRestart_;
  bool isRestarting_ = false;  // Of the thread that is in the callback.
  std::atomic<int> restarts_ = 0;
  /// What the last restart may have left out, because it could not be opened yet.
  Ids overlooked_;
  const std::unique_ptr<Observer> observer_ = makeObserver();
};

TEST_F(RestartedObserver, GoesOnWithTheNewBeginning) {
  isToRestart_ = [this](EventType type) {
    return type != EventType::REPORT_EXISTING && restarts_ < kRounds;
  };
  observer_->start();
  while (restarts_ < kRounds) {
    std::this_thread::yield();
  }
  endLoad();
  static_cast<void>(takeAll());
  const Ids onDisk = reportsOnDisk();
  EXPECT_THAT(difference(recorder_.believed(), onDisk), IsEmpty());
  const Ids missing = difference(onDisk, recorder_.believed());
  EXPECT_THAT(difference(missing, overlooked_), IsEmpty());
  EXPECT_LE(missing.size(), 2U) << "more than the two producers make at once";
}

TEST_F(RestartedObserver, GivesUpTheFormerBeginning) {
  isToRestart_ = [](EventType type) { return type == EventType::REPORT_EXISTING; };
  for (int round = 1; round <= kRounds; ++round) {
    observer_->start();
    ASSERT_EQ(restarts_, round);
    observer_->stop();
    recorder_.disbelieve();
  }
  endLoad();
  observer_->start();
  static_cast<void>(takeAll());
  EXPECT_EQ(recorder_.believed(), reportsOnDisk());
}

TEST_F(ObserverUnderLoad, IsStoppedByItsCallbackForGood) {
  std::atomic<int> stops = 0;
  std::atomic<int> late = 0;
  std::unique_ptr<Observer> observer;
  recorder_.setHook([&](const std::string&, EventType type) {
    late += stops;
    if (type == EventType::REPORT_EXISTING) return;
    observer->stop();
    stops = 1;
  });
  for (int round = 0; round < kRounds; ++round) {
    observer = makeObserver();
    observer->start();
    while (stops == 0) {
      std::this_thread::yield();
    }
    if (round % 2 == 0) {
      observer->stop();
    }
    observer.reset();
    EXPECT_EQ(late, 0);
    stops = 0;
    recorder_.disbelieve();
    static_cast<void>(recorder_.take());
  }
  endLoad();
}

}  // namespace
}  // namespace KELP::Diagnostic
