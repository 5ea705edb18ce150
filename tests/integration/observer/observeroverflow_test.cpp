// The kernel's queue of events is full, and events are lost.

#include "integration/observer/observerfixture.h"
#include "integration/observer/pollgate.h"
#include "integration/observer/producer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace KELP::Diagnostic {
namespace {

using namespace KELP::Test;
using testing::ElementsAre;
using testing::IsEmpty;

using Group = std::vector<std::string>;

/** The observer's threads that read events. */
constexpr int kReaders = 2;
/** Where the queue is larger, filling it would take too long. */
constexpr int kLargestQueue = 200'000;

int queueSize() {
  return std::stoi(readFile("/proc/sys/fs/inotify/max_queued_events"));
}

/** Reports that share a fate. */
Group group(int number) {
  Group ids;
  for (int member = 0; member < 3; ++member) {
    ids.push_back(idText(number * 10 + member));
  }
  return ids;
}

class Overflow : public ObserverTest {
 protected:
  void SetUp() override {
    if (queueSize() > kLargestQueue) {
      GTEST_SKIP() << "fs.inotify.max_queued_events is very large: " << queueSize();
    }
    producer_.request("create " + filler_);
  }

  void request(const std::string& command, const Group& ids) {
    producer_.request(command + joined(ids));
  }
  void touchEach(const Group& ids) {
    for (const std::string& id : ids) {
      producer_.request("touch " + id + " 1");
    }
  }
  /** More events than the queue takes: two for each change. */
  void fillQueue() { producer_.request("touch " + filler_ + " " + std::to_string(queueSize())); }

  /** A gate behind which nobody reads events. */
  std::unique_ptr<PollGate> closeGate() {
    auto gate = std::make_unique<PollGate>();
    touchSentinel();
    gate->awaitHeld(kReaders);
    return gate;
  }

  /** Waits until all has been announced, though a few more overflows may be told as changes of the
   *  sentinel, which must not be taken for the last word. */
  void catchUp() {
    constexpr int kMoreOverflows = 5;
    for (int word = 0; word <= kMoreOverflows; ++word) {
      static_cast<void>(takeAll());
    }
  }

  void expectTypes(const Group& ids, const Announcements& all,
                   const std::vector<EventType>& types) {
    for (const std::string& id : ids) {
      EXPECT_EQ(typesOf(id, all), types) << id;
    }
  }

  const std::string filler_ = idText(1);
  Producer producer_{root_};
  const std::unique_ptr<Observer> observer_ = makeObserver();
};

TEST_F(Overflow, LeavesTheTruthKnownAndWatched) {
  // Of each fate that is known before: what happens early is in the queue, what happens late is
  // lost.
  const Group kept = group(1);
  const Group deletedEarly = group(2);
  const Group deletedLate = group(3);
  const Group recreatedEarly = group(4);
  const Group recreatedLate = group(5);
  const Group changedLate = group(6);
  for (const Group& known :
       {kept, deletedEarly, deletedLate, recreatedEarly, recreatedLate, changedLate}) {
    request("create", known);
  }
  const Group newEarly = group(11);
  const Group newLate = group(12);
  const Group briefEarly = group(13);
  const Group briefLate = group(14);
  const Group newAgainEarly = group(15);
  const Group newAgainLate = group(16);
  const Group backLate = group(17);
  const Group missedAndBack = group(18);

  observer_->start();
  ASSERT_EQ(recorder_.believed(), reportsOnDisk());
  static_cast<void>(recorder_.take());

  // By the time that the observer learns of these, they are gone.
  auto gate = closeGate();
  request("create", missedAndBack);
  request("delete", missedAndBack);
  gate.reset();
  EXPECT_THAT(recorder_.takeUntil({sentinel_, EventType::REPORT_UPDATED}), IsEmpty());
  EXPECT_THAT(takeAll(), IsEmpty());

  gate = closeGate();
  for (const Group& ids : {newEarly, briefEarly, newAgainEarly, backLate}) {
    request("create", ids);
  }
  for (const Group& ids : {briefEarly, backLate, deletedEarly}) {
    request("delete", ids);
  }
  for (const Group& ids : {recreatedEarly, newAgainEarly}) {
    request("recreate", ids);
  }
  fillQueue();
  for (const Group& ids : {newLate, briefLate, newAgainLate, backLate, missedAndBack}) {
    request("create", ids);
  }
  for (const Group& ids : {briefLate, deletedLate}) {
    request("delete", ids);
  }
  for (const Group& ids : {recreatedLate, newAgainLate}) {
    request("recreate", ids);
  }
  touchEach(changedLate);
  gate->open();

  // The sentinel was changed to close the gate; it is told once more because of the overflow.
  const Announcement sentinelUpdated{sentinel_, EventType::REPORT_UPDATED};
  Announcements all = recorder_.takeUntil(sentinelUpdated);
  EXPECT_THAT(all, IsEmpty());
  all = recorder_.takeUntil(sentinelUpdated);
  const Announcements rest = takeAll();
  all.insert(all.end(), rest.begin(), rest.end());

  EXPECT_EQ(recorder_.believed(), reportsOnDisk());
  constexpr auto kAdded = EventType::REPORT_ADDED;
  constexpr auto kUpdated = EventType::REPORT_UPDATED;
  constexpr auto kRemoved = EventType::REPORT_REMOVED;
  for (const Group& ids : {kept, changedLate, recreatedLate}) {
    expectTypes(ids, all, {kUpdated});
  }
  for (const Group& ids : {deletedEarly, deletedLate}) {
    expectTypes(ids, all, {kRemoved});
  }
  for (const Group& ids : {briefEarly, briefLate}) {
    expectTypes(ids, all, {});
  }
  for (const Group& ids : {newLate, newAgainLate, missedAndBack}) {
    expectTypes(ids, all, {kAdded});
  }
  for (const Group& ids : {newEarly, newAgainEarly, backLate}) {
    expectTypes(ids, all, {kAdded, kUpdated});
  }
  expectTypes(recreatedEarly, all, {kRemoved, kAdded, kUpdated});

  for (const std::string& id : reportsOnDisk()) {
    if (id == sentinel_) continue;
    producer_.request("touch " + id + " 1");
    EXPECT_THAT(takeAll(), ElementsAre(Announcement{id, kUpdated}));
    producer_.request("delete " + id);
    EXPECT_THAT(takeAll(), ElementsAre(Announcement{id, kRemoved}));
  }
}

TEST_F(Overflow, OverAndOverLeavesTheTruthKnown) {
  constexpr int kOverflows = 3;
  Producer one(root_);
  Producer two(root_);
  const std::string kept = idText(2);
  producer_.request("create " + kept);
  observer_->start();
  for (int round = 0; round < kOverflows; ++round) {
    const auto gate = closeGate();
    one.begin("churn");
    two.begin("churn");
    fillQueue();
    gate->open();
    // Only an overflow is told as a change of what nobody changes.
    static_cast<void>(recorder_.takeUntil({kept, EventType::REPORT_UPDATED}));
    fillQueue();
    one.end();
    two.end();
    catchUp();
    ASSERT_EQ(recorder_.believed(), reportsOnDisk());
  }
  for (const std::string& id : reportsOnDisk()) {
    if (id != sentinel_) producer_.request("delete " + id);
  }
  static_cast<void>(takeAll());
  EXPECT_EQ(recorder_.believed(), Ids{sentinel_});
}

}  // namespace
}  // namespace KELP::Diagnostic
