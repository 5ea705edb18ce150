// Processes that are killed while they make or change reports: what they leave is told as it is on
// disk, and the observer goes on.

#include "integration/observer/observerfixture.h"
#include "integration/observer/producer.h"
#include "support/strace.h"
#include "support/tracedrun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

namespace KELP::Diagnostic {
namespace {

namespace fs = std::filesystem;
using namespace KELP::Test;
using testing::SizeIs;

class KilledProducer : public ObserverTest {
 protected:
  KilledProducer() {
    // Nobody deletes reports here, so what is announced is still there.
    recorder_.setHook([this](const std::string& id, EventType) {
      withoutMetadata_ += fs::exists(directoryOf(id) / "metadata.db") ? 0 : 1;
      ++told_;
    });
  }
  void TearDown() override {
    EXPECT_EQ(withoutMetadata_, 0) << "a report was announced that has no metadata";
    ObserverTest::TearDown();
  }

  /** The observer goes on: it tells the life of another report. */
  void expectAnotherLife() {
    Producer other(root_);
    const std::string id = idText(++others_);
    other.request("create " + id);
    static_cast<void>(takeAll());
    EXPECT_TRUE(recorder_.believed().contains(id));
    other.request("touch " + id + " 1");
    EXPECT_THAT(takeAll(), testing::ElementsAre(Announcement{id, EventType::REPORT_UPDATED}));
  }

  std::atomic<int> told_ = 0;
  std::atomic<int> withoutMetadata_ = 0;
  int others_ = 0;
  const std::unique_ptr<Observer> observer_ = makeObserver();
};

TEST_F(KilledProducer, SomewhereUnderLoadLeavesTheTruthKnown) {
  observer_->start();
  for (int round = 0; round < 30; ++round) {
    Producer producer(root_);
    producer.begin("grow");
    for (const int before = told_; told_ < before + 3 * round + 1;) {
      std::this_thread::yield();
    }
    producer.kill();
    static_cast<void>(takeAll());
    ASSERT_EQ(recorder_.believed(), reportsOnDisk());
  }
  expectAnotherLife();
}

/** A command that is the same system calls at each run, but for the identifier. */
struct KilledCommand {
  const char* name;
  const char* command;
  bool isOfExisting;
};

std::ostream& operator<<(std::ostream& out, const KilledCommand& command) {
  return out << command.name;
}

class KilledAnywhere : public KilledProducer, public testing::WithParamInterface<KilledCommand> {
 protected:
  void SetUp() override {
    if (const std::string why = whyNoStrace(); !why.empty()) GTEST_SKIP() << why;
    observer_->start();
  }

  /** A run of the command on a report of its own. */
  [[nodiscard]] TracedRun runOf(int number) {
    const std::string id = idText(number);
    if (GetParam().isOfExisting) {
      producer_.request("create " + id);
    }
    return TracedRun(Producer::commandLine(root_, GetParam().command + (" " + id)));
  }

  Producer producer_{root_};
};

TEST_P(KilledAnywhere, LeavesTheTruthKnown) {
  others_ = 100'000;
  const auto calls = runOf(0).calls(directory_ / "trace");
  ASSERT_THAT(calls, SizeIs(testing::Gt(10U)));
  int run = 0;
  bool wasSeenWithoutMetadata = false;
  for (const CountedCall& call : callsToKillAt(calls)) {
    SCOPED_TRACE(call.name + " " + std::to_string(call.count));
    ++run;
    ASSERT_EQ(runOf(run).lastWordsWhenKilledAt(call), "begin");
    static_cast<void>(takeAll());
    ASSERT_EQ(recorder_.believed(), reportsOnDisk());
    wasSeenWithoutMetadata |=
        fs::exists(directoryOf(idText(run))) && !recorder_.believed().contains(idText(run));
  }
  EXPECT_EQ(wasSeenWithoutMetadata, !GetParam().isOfExisting);
  expectAnotherLife();
}

INSTANTIATE_TEST_SUITE_P(, KilledAnywhere,
                         testing::Values(KilledCommand{"creating", "create", false},
                                         KilledCommand{"changing", "step setDescription", true}),
                         [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace KELP::Diagnostic
