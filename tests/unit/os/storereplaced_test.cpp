// The file vanishes, or another one takes its place, behind a store that is open.

#include "unit/os/storefixture.h"

#include <gmock/gmock.h>

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

class StoreReplaced : public StoreTest {
 protected:
  /** Puts a file with @p log into the store's place, in one step. */
  void replaceBy(const StoreLog& log) {
    writeFile(directory() / "new", log.bytes());
    fs::rename(directory() / "new", file());
  }
};

TEST_F(StoreReplaced, ByNothingIsNotReadyAndNotMadeAgain) {
  KeyValueStore store = open();
  ASSERT_TRUE(store.set("report_id", "value"));
  fs::remove(file());
  expectNotReady(store);
  EXPECT_THAT(entriesOf(directory().path()), ::testing::IsEmpty());
}

TEST_F(StoreReplaced, TogetherWithItsDirectoryIsNotReady) {
  fs::create_directory(directory() / "report");
  KeyValueStore store = openStore(directory() / "report" / "metadata.db");
  ASSERT_TRUE(store.set("report_id", "value"));
  fs::remove_all(directory() / "report");
  expectNotReady(store);
  EXPECT_THAT(entriesOf(directory().path()), ::testing::IsEmpty());
}

TEST_F(StoreReplaced, ByAnotherFileIsReadFromThatOne) {
  KeyValueStore store = open();
  ASSERT_TRUE(store.set("report_id", "value"));
  ASSERT_TRUE(store.set("only before", "value"));
  const StoreLog log = sampleLog();
  replaceBy(log);
  EXPECT_EQ(readKeys(store, log.keys()), log.state());
  EXPECT_EQ(store.get("only before"), std::nullopt);
}

TEST_F(StoreReplaced, ByAnotherFileIsChangedInThatOne) {
  KeyValueStore store = open();
  ASSERT_TRUE(store.set("report_id", "value"));
  const StoreLog log = sampleLog();
  replaceBy(log);
  EXPECT_TRUE(store.set("report_id", "next"));
  EXPECT_EQ(readFile(file()), log.bytes() + storeRecord({"report_id", "next"}));
  EXPECT_EQ(store.get("report_id"), "next");
}

TEST_F(StoreReplaced, ByAnotherFileRemovesFromThatOne) {
  KeyValueStore store = open();
  ASSERT_TRUE(store.set("only before", "value"));
  const StoreLog log = sampleLog();
  replaceBy(log);
  EXPECT_TRUE(store.remove("only before"));
  EXPECT_EQ(readFile(file()), log.bytes()) << "the key is absent there";
  EXPECT_TRUE(store.remove("report_id"));
  EXPECT_EQ(readFile(file()), log.bytes() + storeRecord({"report_id", std::nullopt}));
}

TEST_F(StoreReplaced, WhileTheOldFileLivesOnUnderAnotherNameChangesTheNewOne) {
  KeyValueStore store = open();
  ASSERT_TRUE(store.set("report_id", "value"));
  const std::string old = readFile(file());
  fs::rename(file(), directory() / "kept");
  const StoreLog log = sampleLog();
  replaceBy(log);
  EXPECT_TRUE(store.set("modified", "next"));
  EXPECT_EQ(readFile(file()), log.bytes() + storeRecord({"modified", "next"}));
  EXPECT_EQ(readFile(directory() / "kept"), old);
  EXPECT_EQ(store.get("modified"), "next");
  EXPECT_EQ(store.get("report_id"), "first");
}

TEST_F(StoreReplaced, ByAnotherObjectIsSeenAgain) {
  KeyValueStore store = open();
  ASSERT_TRUE(store.set("key", "old"));
  fs::remove(file());
  ASSERT_FALSE(store.isReady());
  ASSERT_TRUE(open().set("key", "new"));
  EXPECT_EQ(store.get("key"), "new");
  EXPECT_TRUE(store.isReady());
  EXPECT_TRUE(store.set("key", "newer"));
  EXPECT_EQ(open().get("key"), "newer");
}

TEST_F(StoreReplaced, ByADirectoryIsNotReady) {
  KeyValueStore store = open();
  ASSERT_TRUE(store.set("report_id", "value"));
  fs::remove(file());
  fs::create_directory(file());
  expectNotReady(store);
  EXPECT_THAT(entriesOf(file()), ::testing::IsEmpty());
}

TEST_F(StoreReplaced, ByALinkToTheFileItselfIsNotChangedThroughIt) {
  KeyValueStore store = open();
  ASSERT_TRUE(store.set("report_id", "value"));
  const std::string before = readFile(file());
  fs::rename(file(), directory() / "kept");
  fs::create_symlink("kept", file());
  EXPECT_FALSE(store.set("report_id", "next"));
  EXPECT_FALSE(store.remove("report_id"));
  EXPECT_EQ(readFile(directory() / "kept"), before);
}

TEST_F(StoreReplaced, ManyTimesOverIsAlwaysTheNewest) {
  KeyValueStore store = open();
  for (int i = 0; i < 200; ++i) {
    const std::string value = std::to_string(i);
    replaceBy(StoreLog(std::vector<StoreChange>{{"key", value}}));
    ASSERT_EQ(store.get("key"), value);
  }
}

}  // namespace
}  // namespace KELP::Test
