// The system refuses to write: nothing is changed, and all works again when it can.

#include "integration/store/actor.h"
#include "support/smalldisk.h"

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

class StoreFileLimit : public StoreTest {
 protected:
  /** Lets no file of the actor grow by more than @p room over the store's size. */
  void leaveRoom(std::size_t room) {
    ASSERT_EQ(actor_.ask("fileLimit " + std::to_string(fs::file_size(file()) + room)), "true");
  }

  Actor& actor() { return actor_; }

 private:
  Actor actor_;
};

TEST_F(StoreFileLimit, RefusesAChangeThatDoesNotFitAndChangesNothing) {
  ASSERT_TRUE(actor().open(file()));
  ASSERT_TRUE(actor().set("key", 1, 100));
  const std::string before = readFile(file());
  for (const std::size_t room : {0U, 1U, 15U, 16U, 17U, 100U, 118U}) {
    SCOPED_TRACE("room for " + std::to_string(room) + " of 119 bytes");
    ASSERT_NO_FATAL_FAILURE(leaveRoom(room));
    EXPECT_FALSE(actor().set("key", 2, 100));
    EXPECT_EQ(readFile(file()), before);
    EXPECT_EQ(actor().get("key"), describePattern(1, 100));
    EXPECT_EQ(actor().ask("isReady"), "true");
    EXPECT_EQ(open().get("key"), patternValue(1, 100));
  }
  ASSERT_NO_FATAL_FAILURE(leaveRoom(119));
  EXPECT_TRUE(actor().set("key", 2, 100));
  EXPECT_EQ(open().get("key"), patternValue(2, 100));
}

TEST_F(StoreFileLimit, RefusesTheFirstChangeOfAnEmptyStore) {
  ASSERT_TRUE(actor().open(file()));
  for (const std::size_t room : {0U, 1U, 7U, 8U, 20U, 27U}) {
    ASSERT_EQ(actor().ask("fileLimit " + std::to_string(room)), "true");
    EXPECT_FALSE(actor().set("key", 1, 100));
    EXPECT_EQ(readFile(file()), "") << room;
    EXPECT_TRUE(open().isReady());
  }
  ASSERT_EQ(actor().ask("fileLimit -1"), "true");
  EXPECT_TRUE(actor().set("key", 1, 100));
  EXPECT_EQ(readFile(file()), storeMagic() + storeRecord({"key", patternValue(1, 100)}));
}

TEST_F(StoreFileLimit, ACompactionThatCannotBeWrittenLosesNothing) {
  // The live records are just under a quarter of what is written, and over the limit.
  ASSERT_TRUE(actor().open(file()));
  ASSERT_TRUE(actor().set("large", 1, 30'000));
  StoreMap expected{{"large", patternValue(1, 30'000)}};
  ASSERT_EQ(actor().ask("fileLimit 131072"), "true");
  for (std::uint64_t i = 1; i <= 100; ++i) {
    const auto size = static_cast<std::size_t>(i * 613 % 5000);
    if (actor().set("small", i, size)) {
      expected["small"] = patternValue(i, size);
    }
    ASSERT_EQ(decodeStore(readFile(file())), expected) << i;
  }
  ASSERT_EQ(actor().ask("fileLimit -1"), "true");
  EXPECT_TRUE(actor().set("small", 1000, 10));
  EXPECT_EQ(open().get("small"), patternValue(1000, 10));
  EXPECT_EQ(entriesOf(directory().path()), std::vector<std::string>{"metadata.db"});
}

TEST_F(StoreFileLimit, ADescriptorLimitRefusesChangesAndStillReads) {
  ASSERT_TRUE(actor().open(file()));
  ASSERT_TRUE(actor().set("key", 1, 100));
  ASSERT_EQ(actor().get("key"), describePattern(1, 100));
  const std::string before = readFile(file());
  ASSERT_EQ(actor().ask("descriptorLimit 0"), "true");
  EXPECT_FALSE(actor().set("key", 2, 100));
  EXPECT_FALSE(actor().remove("key"));
  EXPECT_EQ(actor().get("key"), describePattern(1, 100));
  EXPECT_EQ(readFile(file()), before);
  ASSERT_EQ(actor().ask("close"), "closed");
  ASSERT_EQ(actor().ask("descriptorLimit 0"), "true");
  EXPECT_FALSE(actor().open(file()));
  EXPECT_EQ(actor().get("key"), "none");
  ASSERT_EQ(actor().ask("descriptorLimit -1"), "true");
  ASSERT_TRUE(actor().open(file()));
  EXPECT_TRUE(actor().set("key", 2, 100));
}

class StoreFullDisk : public StoreTest {
 protected:
  void SetUp() override {
    if (!disk_.unavailable().empty()) GTEST_SKIP() << disk_.unavailable();
  }

  [[nodiscard]] fs::path onDisk(const std::string& name) const { return disk_.path() / name; }

  const SmallDisk disk_{directory() / "disk", 512};
};

TEST_F(StoreFullDisk, RefusesAChangeAndChangesNothingUntilThereIsSpace) {
  KeyValueStore store = openStore(onDisk("metadata.db"));
  ASSERT_TRUE(store.set("key", patternValue(1, 3000)));
  disk_.fill(0);
  const std::string before = readFile(onDisk("metadata.db"));
  EXPECT_FALSE(store.set("key", patternValue(2, 8000)));
  EXPECT_FALSE(store.set("other", patternValue(3, 8000)));
  EXPECT_EQ(readFile(onDisk("metadata.db")), before);
  EXPECT_EQ(store.get("key"), patternValue(1, 3000));
  EXPECT_EQ(store.get("other"), std::nullopt);
  EXPECT_EQ(decodeStore(before), (StoreMap{{"key", patternValue(1, 3000)}}));

  disk_.empty();
  EXPECT_TRUE(store.set("key", patternValue(2, 8000)));
  EXPECT_EQ(openStore(onDisk("metadata.db")).get("key"), patternValue(2, 8000));
}

TEST_F(StoreFullDisk, ACompactionWithoutSpaceLosesNothingAndLeavesNothing) {
  KeyValueStore store = openStore(onDisk("metadata.db"));
  StoreMap expected;
  bool filled = false;
  for (std::uint64_t i = 1; i <= 200; ++i) {
    const auto size = static_cast<std::size_t>(1 + i * 613 % 3000);
    if (!filled && fs::file_size(onDisk("metadata.db")) > 60'000) {
      disk_.fill(0);
      filled = true;
    }
    if (store.set("key", patternValue(i, size))) {
      expected["key"] = patternValue(i, size);
    }
    ASSERT_EQ(decodeStore(readFile(onDisk("metadata.db"))), expected) << i;
  }
  ASSERT_TRUE(filled);
  EXPECT_EQ(entriesOf(onDisk("")), (std::vector<std::string>{"filler", "metadata.db"}));
  disk_.empty();
  EXPECT_TRUE(store.set("key", "there is space"));
  EXPECT_EQ(decodeStore(readFile(onDisk("metadata.db"))), (StoreMap{{"key", "there is space"}}));
}

}  // namespace
}  // namespace KELP::Test
