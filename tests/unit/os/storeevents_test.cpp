// What a watcher of the directory sees of changes by this process's objects; the stores stay open.

#include "unit/os/directoryevents.h"
#include "unit/os/storefixture.h"

#include <gmock/gmock.h>

namespace KELP::Test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class StoreEvents : public StoreTest, public ::testing::WithParamInterface<unsigned long> {
 protected:
  [[nodiscard]] KeyValueStore openSo() const { return open(GetParam()); }
};

// With and without a sync of each change; shared, and taken for the store alone.
INSTANTIATE_TEST_SUITE_P(, StoreEvents, ::testing::Values(kReportOptions, 14, 4, 6, 20));

TEST_P(StoreEvents, EveryChangeIsAModificationAndThenAClosedWrite) {
  KeyValueStore store = openSo();
  DirectoryEvents events(directory().path());
  for (const char* value : {"first", "second", "second", "", ""}) {
    ASSERT_TRUE(store.set("key", value));
    EXPECT_THAT(events.take(), ElementsAre("MODIFY metadata.db", "CLOSE_WRITE metadata.db"))
        << "set to \"" << value << '"';
  }
  ASSERT_TRUE(store.remove("key"));
  EXPECT_THAT(events.take(), ElementsAre("MODIFY metadata.db", "CLOSE_WRITE metadata.db"));
}

TEST_P(StoreEvents, WhatChangesNothingIsNoEvent) {
  KeyValueStore store = openSo();
  ASSERT_TRUE(store.set("key", "value"));
  DirectoryEvents events(directory().path());
  EXPECT_EQ(store.get("key"), "value");
  EXPECT_EQ(store.get("absent"), std::nullopt);
  EXPECT_TRUE(store.remove("absent"));
  EXPECT_TRUE(store.isReady());
  EXPECT_TRUE(store.sync());
  EXPECT_FALSE(store.set("key", std::string(std::size_t{256} * 1024 * 1024, 'x')));
  EXPECT_THAT(events.take(), IsEmpty());
}

TEST_P(StoreEvents, ClosingAStoreThatWasWrittenIsNoEvent) {
  DirectoryEvents events(directory().path());
  {
    KeyValueStore store = openSo();
    ASSERT_TRUE(store.set("key", "value"));
    EXPECT_THAT(events.take(), ::testing::Contains("MODIFY metadata.db"));
  }
  EXPECT_THAT(events.take(), IsEmpty());
}

TEST_P(StoreEvents, AChangeThatDropsATornTailLooksLikeAnyOther) {
  writeFile(file(), sampleLog().bytes() + "torn");
  KeyValueStore store = openSo();
  DirectoryEvents events(directory().path());
  ASSERT_TRUE(store.set("key", "value"));
  EXPECT_THAT(events.take(), ElementsAre("MODIFY metadata.db", "CLOSE_WRITE metadata.db"));
}

TEST_P(StoreEvents, ACompactionIsAMoveToTheFilesNameToo) {
  KeyValueStore store = openSo();
  DirectoryEvents events(directory().path());
  int compactions = 0;
  for (int i = 0; i < 100; ++i) {
    const ino_t inode = statusOf(file()).st_ino;
    ASSERT_TRUE(store.set("key", std::string(4000, 'x')));
    std::vector<std::string> seen = events.takeOf("metadata.db");
    if (statusOf(file()).st_ino != inode) {
      ++compactions;
      EXPECT_EQ(std::erase(seen, "MOVED_TO"), 1U) << ::testing::PrintToString(seen);
    }
    EXPECT_THAT(seen, ElementsAre("MODIFY", "CLOSE_WRITE"));
  }
  EXPECT_GE(compactions, 4);
}

TEST_P(StoreEvents, TheFileIsCreatedWhenTheStoreIsOpened) {
  DirectoryEvents events(directory().path());
  KeyValueStore store = openSo();
  const auto opened = events.take();
  ASSERT_THAT(opened, ::testing::Not(IsEmpty()));
  EXPECT_EQ(opened.front(), "CREATE metadata.db");
  EXPECT_THAT(opened, ::testing::Not(::testing::Contains("MODIFY metadata.db")));
  EXPECT_TRUE(store.isReady());
}

using StoreRefusalEvents = StoreTest;

TEST_F(StoreRefusalEvents, ARefusedChangeIsNoEvent) {
  writeFile(file(), sampleLog().bytes() + std::string(40, '#'));
  const unsigned long readOnly = KeyValueStore::Options({Option::ReadOnly}).value();
  for (const unsigned long options : {kReportOptions, 6UL, readOnly}) {
    KeyValueStore store = open(options);
    DirectoryEvents events(directory().path());
    expectNotReady(store);
    EXPECT_THAT(events.take(), IsEmpty()) << options;
  }
}

}  // namespace
}  // namespace KELP::Test
