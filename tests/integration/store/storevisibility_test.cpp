// A change that was made is seen, and told to watchers, in every other process at once.

#include "integration/store/actor.h"
#include "unit/os/directoryevents.h"

#include <gmock/gmock.h>

namespace KELP::Test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using StoreVisibility = StoreTest;

TEST_F(StoreVisibility, EveryChangeIsInTheOtherProcessesNextGet) {
  Actor first;
  Actor second;
  KeyValueStore here = open();
  ASSERT_TRUE(first.open(file()));
  ASSERT_TRUE(second.open(file()));
  for (std::uint64_t i = 1; i <= 150; ++i) {
    const std::size_t size = i * 37 % 3000;  // Large enough for some compactions.
    Actor& writer = i % 2 == 0 ? first : second;
    Actor& reader = i % 2 == 0 ? second : first;
    ASSERT_TRUE(writer.set("key", i, size));
    ASSERT_EQ(reader.get("key"), describePattern(i, size));
    ASSERT_EQ(here.get("key"), patternValue(i, size));
    ASSERT_TRUE(here.set("from here", std::to_string(i)));
    ASSERT_EQ(reader.get("from"), "none");
    ASSERT_TRUE(reader.remove("key"));
    ASSERT_EQ(writer.get("key"), "none");
    ASSERT_EQ(here.get("key"), std::nullopt);
  }
}

TEST_F(StoreVisibility, ALargeValueCrossesProcesses) {
  constexpr std::size_t kSize = 16 * 1024 * 1024;
  Actor actor;
  KeyValueStore here = open();
  ASSERT_TRUE(actor.open(file()));
  ASSERT_TRUE(actor.set("large", 1, kSize));
  EXPECT_TRUE(here.get("large") == patternValue(1, kSize));
  ASSERT_TRUE(here.set("large", patternValue(2, kSize)));
  EXPECT_EQ(actor.get("large"), describePattern(2, kSize));
}

TEST_F(StoreVisibility, ChangesOfAnotherProcessRaiseTheirEventsWhileItsStoreStaysOpen) {
  Actor actor;
  ASSERT_TRUE(actor.open(file()));
  DirectoryEvents events(directory().path());
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(actor.set("key", 1, 100));
    EXPECT_THAT(events.take(), ElementsAre("MODIFY metadata.db", "CLOSE_WRITE metadata.db"));
  }
  ASSERT_TRUE(actor.remove("key"));
  EXPECT_THAT(events.take(), ElementsAre("MODIFY metadata.db", "CLOSE_WRITE metadata.db"));
  ASSERT_TRUE(actor.remove("key"));
  EXPECT_EQ(actor.get("key"), "none");
  EXPECT_EQ(actor.ask("isReady"), "true");
  EXPECT_THAT(events.take(), IsEmpty());
  EXPECT_EQ(actor.ask("close"), "closed");
  EXPECT_TRUE(actor.open(file(), 8));
  EXPECT_FALSE(actor.open(directory() / "missing", 8));
  EXPECT_THAT(events.take(), IsEmpty());
}

TEST_F(StoreVisibility, AKilledProcessClosesItsStoreWithoutAnEvent) {
  Actor actor;
  ASSERT_TRUE(actor.open(file()));
  ASSERT_TRUE(actor.set("key", 1, 100));
  DirectoryEvents events(directory().path());
  actor.process().signal(SIGKILL);
  EXPECT_EQ(actor.process().wait(), 128 + SIGKILL);
  EXPECT_THAT(events.take(), IsEmpty());
}

TEST_F(StoreVisibility, AReaderInAnotherProcessSeesTheRightValuesAcrossCompactions) {
  Actor reader;
  KeyValueStore here = open();
  ASSERT_TRUE(here.set("kept", patternValue(7, 77)));
  ASSERT_TRUE(reader.open(file(), 9));
  int compactions = 0;
  for (std::uint64_t i = 1; i <= 60; ++i) {
    const ino_t inode = statusOf(file()).st_ino;
    ASSERT_TRUE(here.set("changing", patternValue(i, 6000)));
    compactions += statusOf(file()).st_ino == inode ? 0 : 1;
    ASSERT_EQ(reader.get("changing"), describePattern(i, 6000));
    ASSERT_EQ(reader.get("kept"), describePattern(7, 77));
  }
  EXPECT_GE(compactions, 4);
}

TEST_F(StoreVisibility, NoDescriptorReachesAProgramThatIsExecuted) {
  KeyValueStore shared = open();
  ASSERT_TRUE(shared.set("key", "value"));
  ASSERT_EQ(shared.get("key"), "value");
  KeyValueStore alone = openStore(directory() / "alone.db", 4);
  ASSERT_TRUE(alone.set("key", "value"));
  Actor actor;
  EXPECT_THAT(actor.ask("descriptors"),
              ::testing::Not(::testing::HasSubstr(directory().path().string())));
  // The question itself can see an open store.
  ASSERT_TRUE(actor.open(file()));
  EXPECT_THAT(actor.ask("descriptors"), ::testing::HasSubstr(file().string()));
}

}  // namespace
}  // namespace KELP::Test
