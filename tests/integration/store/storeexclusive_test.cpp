// Locks between processes: waiting writers, stores taken by one process, holders that die or stop.

#include "integration/store/tracedactor.h"
#include "support/strace.h"
#include "unit/os/directoryevents.h"

#include <gmock/gmock.h>
#include <signal.h>

namespace KELP::Test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/** CreateIfMissing and SyncOnClose: the store is taken for the process alone. */
constexpr unsigned long kAlone = 20;

class StoreExclusive : public StoreTest {
 protected:
  void SetUp() override { ASSERT_TRUE(holder_.open(file(), kAlone)); }

  Actor& holder() { return holder_; }

  void expectRefusedAfterWaiting(KeyValueStore& store) {
    const std::string before = readFile(file());
    DirectoryEvents events(directory().path());
    const Stopwatch watch;
    EXPECT_FALSE(store.set("key", "by another"));
    EXPECT_TRUE(watch.waitedForLock());
    EXPECT_EQ(readFile(file()), before);
    EXPECT_THAT(events.take(), IsEmpty());
  }

  void expectFree() {
    const Stopwatch watch;
    KeyValueStore store = open();
    EXPECT_TRUE(store.set("key", "by another"));
    EXPECT_TRUE(watch.didNotWait());
    EXPECT_EQ(open(kAlone).get("key"), "by another");
  }

 private:
  Actor holder_;
};

TEST_F(StoreExclusive, OthersReadAndCannotChangeIt) {
  ASSERT_TRUE(holder().set("key", 1, 100));
  KeyValueStore store = open();
  EXPECT_TRUE(store.isReady());
  EXPECT_EQ(store.get("key"), patternValue(1, 100));
  expectRefusedAfterWaiting(store);
  ASSERT_TRUE(holder().set("key", 2, 100));
  EXPECT_EQ(store.get("key"), patternValue(2, 100));
  EXPECT_EQ(holder().ask("close"), "closed");
  expectFree();
}

TEST_F(StoreExclusive, ASecondOneIsNotReadyUntilTheFirstIsClosed) {
  ASSERT_TRUE(holder().set("key", 1, 100));
  const Stopwatch watch;
  KeyValueStore second = open(kAlone);
  EXPECT_FALSE(second.isReady());
  EXPECT_TRUE(watch.waitedForLock());
  EXPECT_TRUE(holder().set("key", 2, 100)) << "the first was disturbed";
  EXPECT_EQ(holder().ask("close"), "closed");
  KeyValueStore third = open(kAlone);
  EXPECT_TRUE(third.isReady());
  EXPECT_EQ(third.get("key"), patternValue(2, 100));
}

TEST_F(StoreExclusive, StaysSoWhenTheFileIsWrittenAnew) {
  const ino_t inode = statusOf(file()).st_ino;
  std::uint64_t changes = 0;
  while (statusOf(file()).st_ino == inode) {
    ASSERT_TRUE(holder().set("key", ++changes, 5000));
    ASSERT_LT(changes, 1000U) << "no compaction";
  }
  KeyValueStore store = open();
  EXPECT_EQ(store.get("key"), patternValue(changes, 5000));
  expectRefusedAfterWaiting(store);
  ASSERT_TRUE(holder().set("key", 1, 10));
  EXPECT_EQ(store.get("key"), patternValue(1, 10));
}

// Whoever lets go of the lock only for an instant may lose it to who waits for it.
TEST_F(StoreTest, TakenByOneProcessIsNotLetGoWhenTheFileGetsAndLosesOtherNames) {
  if (const std::string reason = whyNoStrace(); !reason.empty()) {
    GTEST_SKIP() << reason;
  }
  TracedActor holder("flock,close");
  ASSERT_TRUE(holder.actor().open(file(), kAlone));
  ASSERT_TRUE(holder.actor().set("key", 1, 100));
  KeyValueStore store = open();
  std::filesystem::create_hard_link(file(), directory() / "other");
  holder.mark("read");
  EXPECT_EQ(holder.actor().get("key"), describePattern(1, 100));
  holder.mark("change");
  std::filesystem::remove(directory() / "other");
  EXPECT_EQ(store.get("key"), patternValue(1, 100));
  EXPECT_TRUE(holder.actor().set("key", 2, 100));
  holder.mark("end");
  EXPECT_EQ(store.get("key"), patternValue(2, 100));
  const std::vector<std::string> calls = holder.finish();
  EXPECT_THAT(TracedActor::between(calls, "read", "change"), IsEmpty());
  // The change itself opens the file once more, and closes that.
  EXPECT_THAT(TracedActor::between(calls, "change", "end"),
              ElementsAre(::testing::StartsWith("close(")));
}

TEST_F(StoreExclusive, IsFreeAtOnceWhenTheHolderIsKilled) {
  ASSERT_TRUE(holder().set("key", 1, 100));
  holder().process().signal(SIGKILL);
  ASSERT_EQ(holder().process().wait(), 128 + SIGKILL);
  expectFree();
}

TEST_F(StoreExclusive, IsFreeWhenItIsClosedThoughAProgramThatTheHolderExecutedLives) {
  ASSERT_TRUE(holder().set("key", 1, 100));
  ASSERT_EQ(holder().ask("spawn"), "true");
  EXPECT_EQ(holder().ask("close"), "closed");
  expectFree();
  EXPECT_EQ(holder().ask("reap"), "true");
}

TEST_F(StoreExclusive, AWaitingChangeIsMadeWhenTheHolderCloses) {
  Actor waiting;
  ASSERT_TRUE(waiting.open(file()));
  waiting.tell("echo waiting");
  waiting.tell("set key 3 30");
  ASSERT_EQ(waiting.answer(), "waiting");
  EXPECT_EQ(holder().ask("close"), "closed");
  EXPECT_EQ(waiting.answer(), "true");
  EXPECT_EQ(open().get("key"), patternValue(3, 30));
}

TEST_F(StoreExclusive, AStoppedHolderMakesChangesOfOthersFailAndNothingElse) {
  ASSERT_TRUE(holder().set("key", 1, 100));
  KeyValueStore store = open();
  holder().process().signal(SIGSTOP);
  expectRefusedAfterWaiting(store);
  const Stopwatch watch;
  EXPECT_FALSE(store.remove("key"));
  EXPECT_TRUE(watch.waitedForLock());
  EXPECT_EQ(store.get("key"), patternValue(1, 100));
  EXPECT_TRUE(store.isReady());
  holder().process().signal(SIGCONT);
  EXPECT_EQ(holder().ask("close"), "closed");
  EXPECT_TRUE(store.set("key", "at last"));
  EXPECT_EQ(open().get("key"), "at last");
}

TEST_F(StoreTest, ChangesThatSignalsInterruptWhileTheyWaitAreMade) {
  constexpr int kWriters = 3;
  constexpr int kChanges = 400;
  std::vector<std::unique_ptr<Actor>> writers;
  for (int i = 1; i <= kWriters; ++i) {
    writers.push_back(std::make_unique<Actor>());
    ASSERT_TRUE(writers.back()->open(file()));
    ASSERT_EQ(writers.back()->ask("interrupt 500"), "true");
  }
  for (int i = 1; i <= kWriters; ++i) {
    writers[static_cast<std::size_t>(i - 1)]->tell("write " + std::to_string(i) + ' ' +
                                                   std::to_string(kChanges));
  }
  for (auto& writer : writers) {
    EXPECT_EQ(writer->answer(), "done");
  }
}

}  // namespace
}  // namespace KELP::Test
