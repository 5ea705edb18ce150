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

constexpr auto kAdded = EventType::REPORT_ADDED;
constexpr auto kUpdated = EventType::REPORT_UPDATED;
constexpr auto kRemoved = EventType::REPORT_REMOVED;

/** What happens to some reports while nobody reads events, and what is told of it. */
struct Fate {
  const char* name;
  bool known;                      ///< Whether they are there when the observer starts.
  std::vector<std::string> early;  ///< What the queue still takes.
  std::vector<std::string> late;   ///< What is lost.
  std::vector<EventType> told;
};

const std::vector<Fate> kFates{
    {"kept", true, {}, {}, {kUpdated}},
    {"deleted early", true, {"delete"}, {}, {kRemoved}},
    {"deleted late", true, {}, {"delete"}, {kRemoved}},
    {"recreated early", true, {"recreate"}, {}, {kRemoved, kAdded, kUpdated}},
    {"recreated late", true, {}, {"recreate"}, {kUpdated}},
    {"changed late", true, {}, {"touch"}, {kUpdated}},
    {"new early", false, {"create"}, {}, {kAdded, kUpdated}},
    {"new late", false, {}, {"create"}, {kAdded}},
    {"brief early", false, {"create", "delete"}, {}, {}},
    {"brief late", false, {}, {"create", "delete"}, {}},
    {"new again early", false, {"create", "recreate"}, {}, {kAdded, kUpdated}},
    {"new again late", false, {}, {"create", "recreate"}, {kAdded}},
    {"back late", false, {"create", "delete"}, {"create"}, {kAdded, kUpdated}},
    // Created and deleted once before, when the observer could not look.
    {"missed and back", false, {}, {"create"}, {kAdded}},
};
const std::size_t kMissed = kFates.size() - 1;

/** The observer's threads that read events. */
constexpr int kReaders = 2;
/** Where the queue is larger, filling it would take too long. */
constexpr int kLargestQueue = 200'000;

int queueSize() {
  return std::stoi(readFile("/proc/sys/fs/inotify/max_queued_events"));
}

/** The reports that share a fate. */
Group group(std::size_t fate) {
  Group ids;
  for (int member = 0; member < 3; ++member) {
    ids.push_back(idText((static_cast<int>(fate) + 1) * 10 + member));
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
  /** Does to all reports what happens to them early, or late. */
  void meetFates(std::vector<std::string> Fate::*when) {
    for (std::size_t i = 0; i < kFates.size(); ++i) {
      for (const std::string& command : kFates[i].*when) {
        command == "touch" ? touchEach(group(i)) : request(command, group(i));
      }
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

  /** Creates reports, and deletes them again before the observer learns of them. */
  void missReports() {
    auto gate = closeGate();
    request("create", group(kMissed));
    request("delete", group(kMissed));
    gate.reset();
    EXPECT_THAT(recorder_.takeUntil({sentinel_, kUpdated}), IsEmpty());
    EXPECT_THAT(takeAll(), IsEmpty());
  }

  /** Expects that each report that is there is still watched. */
  void expectWatched() {
    for (const std::string& id : reportsOnDisk()) {
      if (id == sentinel_) continue;
      producer_.request("touch " + id + " 1");
      EXPECT_THAT(takeAll(), ElementsAre(Announcement{id, kUpdated}));
      producer_.request("delete " + id);
      EXPECT_THAT(takeAll(), ElementsAre(Announcement{id, kRemoved}));
    }
  }

  const std::string filler_ = idText(1);
  Producer producer_{root_};
  const std::unique_ptr<Observer> observer_ = makeObserver();
};

TEST_F(Overflow, LeavesTheTruthKnownAndWatched) {
  for (std::size_t i = 0; i < kFates.size(); ++i) {
    if (kFates[i].known) {
      request("create", group(i));
    }
  }
  observer_->start();
  ASSERT_EQ(recorder_.believed(), reportsOnDisk());
  static_cast<void>(recorder_.take());

  missReports();
  const std::unique_ptr<PollGate> gate = closeGate();
  meetFates(&Fate::early);
  fillQueue();
  meetFates(&Fate::late);
  gate->open();

  // The sentinel was changed to close the gate; it is told once more because of the overflow.
  const Announcement sentinelUpdated{sentinel_, kUpdated};
  Announcements all = recorder_.takeUntil(sentinelUpdated);
  EXPECT_THAT(all, IsEmpty());
  all = recorder_.takeUntil(sentinelUpdated);
  const Announcements rest = takeAll();
  all.insert(all.end(), rest.begin(), rest.end());

  EXPECT_EQ(recorder_.believed(), reportsOnDisk());
  for (std::size_t i = 0; i < kFates.size(); ++i) {
    for (const std::string& id : group(i)) {
      EXPECT_EQ(typesOf(id, all), kFates[i].told) << kFates[i].name << ", " << id;
    }
  }
  expectWatched();
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
