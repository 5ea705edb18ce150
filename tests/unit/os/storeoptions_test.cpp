// What the bits of the option set do within one process.

#include "unit/os/directoryevents.h"
#include "unit/os/storefixture.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

namespace KELP::Test {
namespace {

using ::testing::IsEmpty;

unsigned long bits(std::initializer_list<Option> options) {
  return KeyValueStore::Options(options).value();
}

using StoreCreateIfMissing = StoreTest;

TEST_F(StoreCreateIfMissing, CreatesAnEmptyFileWhenItIsOpened) {
  KeyValueStore store = open();
  EXPECT_TRUE(store.isReady());
  EXPECT_TRUE(S_ISREG(statusOf(file()).st_mode));
  EXPECT_EQ(statusOf(file()).st_size, 0);
  EXPECT_EQ(store.get("key"), std::nullopt);
  EXPECT_TRUE(store.sync());
  EXPECT_EQ(entriesOf(directory().path()), std::vector<std::string>{"metadata.db"});
}

TEST_F(StoreCreateIfMissing, TakesAnExistingStoreAsItIs) {
  writeFile(file(), sampleLog().bytes());
  KeyValueStore store = open();
  EXPECT_EQ(readKeys(store, sampleLog().keys()), sampleLog().state());
  EXPECT_EQ(readFile(file()), sampleLog().bytes());
}

TEST_F(StoreCreateIfMissing, CreatesTheFileUnderTheProcessesMask) {
  const mode_t old = ::umask(0027);
  { const KeyValueStore store = open(); }
  ::umask(old);
  EXPECT_EQ(statusOf(file()).st_mode & 0027, 0U);
}

class StoreWithoutCreation : public StoreTest,
                             public ::testing::WithParamInterface<unsigned long> {};

INSTANTIATE_TEST_SUITE_P(, StoreWithoutCreation,
                         ::testing::Values(bits({}), bits({Option::Shared}),
                                           bits({Option::Shared, Option::SyncOnClose}),
                                           bits({Option::SyncEachWrite, Option::Shared}),
                                           bits({Option::ReadOnly, Option::Shared}),
                                           bits({Option::ReadOnly, Option::CreateIfMissing}),
                                           bits({Option::ReadOnly, Option::CreateIfMissing,
                                                 Option::Shared, Option::SyncOnClose})));

TEST_P(StoreWithoutCreation, IsNotReadyAndMakesNoFile) {
  {
    KeyValueStore store = open(GetParam());
    expectNotReady(store);
  }
  EXPECT_THAT(entriesOf(directory().path()), IsEmpty());
}

TEST_P(StoreWithoutCreation, OpensAnExistingStore) {
  writeFile(file(), sampleLog().bytes());
  KeyValueStore store = open(GetParam());
  EXPECT_TRUE(store.isReady());
  EXPECT_EQ(readKeys(store, sampleLog().keys()), sampleLog().state());
}

TEST_P(StoreWithoutCreation, SeesAStoreThatIsCreatedLater) {
  KeyValueStore early = open(GetParam() | bits({Option::Shared}));
  ASSERT_FALSE(early.isReady());
  ASSERT_TRUE(open().set("key", "value"));
  EXPECT_EQ(early.get("key"), "value");
  EXPECT_TRUE(early.isReady());
}

using StoreReadOnly = StoreTest;

TEST_F(StoreReadOnly, RefusesChangesAndSeesThoseOfOthers) {
  KeyValueStore writer = open();
  ASSERT_TRUE(writer.set("key", "value"));
  KeyValueStore reader = open(bits({Option::ReadOnly, Option::Shared}));
  const std::string before = readFile(file());
  DirectoryEvents events(directory().path());

  EXPECT_FALSE(reader.set("key", "other"));
  EXPECT_FALSE(reader.set("key", "value"));
  EXPECT_FALSE(reader.remove("key"));
  EXPECT_FALSE(reader.remove("absent"));
  EXPECT_TRUE(reader.isReady());
  EXPECT_TRUE(reader.sync());
  EXPECT_EQ(readFile(file()), before);
  EXPECT_THAT(events.take(), IsEmpty());

  ASSERT_TRUE(writer.set("key", "next"));
  EXPECT_EQ(reader.get("key"), "next");
}

using StoreSync = StoreTest;

TEST_F(StoreSync, IsTrueForAnyReadyStore) {
  for (const unsigned long options : {kReportOptions, bits({Option::SyncEachWrite, Option::Shared}),
                                      bits({Option::ReadOnly, Option::Shared})}) {
    ASSERT_TRUE(open().set("key", "value"));
    KeyValueStore store = open(options);
    EXPECT_TRUE(store.sync()) << options;
    EXPECT_EQ(store.get("key"), "value");
  }
}

TEST_F(StoreSync, LeavesNothingOfTheStoreInTheWay) {
  KeyValueStore store =
      open(bits({Option::SyncEachWrite, Option::CreateIfMissing, Option::Shared}));
  ASSERT_TRUE(store.set("key", "value"));
  ASSERT_TRUE(store.sync());
  EXPECT_EQ(readFile(file()), storeMagic() + storeRecord({"key", "value"}));
  EXPECT_TRUE(open().set("key", "other"));
  EXPECT_EQ(store.get("key"), "other");
}

}  // namespace
}  // namespace KELP::Test
