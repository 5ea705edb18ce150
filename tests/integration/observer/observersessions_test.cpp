// An observer that is started and stopped over and over while other processes create and delete
// reports.

#include "integration/observer/observerfixture.h"
#include "integration/observer/producer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::Each;
using testing::Field;

constexpr int kStarts = 1000;
/** Each so many starts, the observer stays until it has told something by itself. */
constexpr int kLongerSession = 10;

using ObserverSessions = ObserverTest;

TEST_F(ObserverSessions, BeginAnewThousandTimesUnderLoad) {
  Producer one(root_);
  Producer two(root_);
  one.begin("churn");
  two.begin("churn");

  const auto client = std::this_thread::get_id();
  std::atomic<bool> stopped = true;
  std::atomic<int> late = 0;
  std::atomic<int> misplaced = 0;
  std::atomic<int> told = 0;
  recorder_.setHook([&](const std::string&, EventType type) {
    late += stopped ? 1 : 0;
    const bool isInStart = std::this_thread::get_id() == client;
    misplaced += (type == EventType::REPORT_EXISTING) == isInStart ? 0 : 1;
    told += isInStart ? 0 : 1;
  });
  const auto observer = makeObserver();
  for (int start = 0; start < kStarts; ++start) {
    stopped = false;
    observer->start();
    ASSERT_TRUE(recorder_.believed().contains(sentinel_));
    if (start % kLongerSession == 0) {
      for (const int before = told; told == before;) {
        std::this_thread::yield();
      }
    }
    observer->stop();
    stopped = true;
    recorder_.disbelieve();
    static_cast<void>(recorder_.take());
  }
  one.end();
  two.end();
  EXPECT_EQ(late, 0) << "announcements after stop() had returned";
  EXPECT_EQ(misplaced, 0) << "what exists is told by start(), all else by the observer's thread";

  stopped = false;
  observer->start();
  EXPECT_THAT(takeAll(), Each(Field(&Announcement::type, EventType::REPORT_EXISTING)));
  EXPECT_EQ(recorder_.believed(), reportsOnDisk());
  observer->stop();
}

}  // namespace
}  // namespace KELP::Diagnostic
