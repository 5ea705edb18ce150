// The bytes on disk, compared with those that the tests' own encoder makes.

#include "unit/os/storefixture.h"

namespace KELP::Test {
namespace {

using StoreForm = StoreTest;

TEST_F(StoreForm, EveryChangeAppendsItsRecordAndNothingElse) {
  KeyValueStore store = open();
  EXPECT_EQ(readFile(file()), "");
  const std::vector<StoreChange> changes = {
      {"key", "value"}, {"other", ""}, {"key", "value"}, {"other", std::nullopt}, {"", "x"}};
  std::string expected = storeMagic();
  for (const StoreChange& change : changes) {
    ASSERT_TRUE(change.value ? store.set(change.key, *change.value) : store.remove(change.key));
    expected += storeRecord(change);
    EXPECT_EQ(readFile(file()), expected);
  }
}

TEST_F(StoreForm, AFileMadeElsewhereIsRead) {
  const StoreLog log = sampleLog();
  writeFile(file(), log.bytes());
  KeyValueStore store = open();
  EXPECT_TRUE(store.isReady());
  EXPECT_EQ(readKeys(store, log.keys()), log.state());
  EXPECT_EQ(store.get("never there"), std::nullopt);
}

TEST_F(StoreForm, ChecksumsAndLengthsAreLittleEndianCrc32) {
  KeyValueStore store = open();
  ASSERT_TRUE(store.set("a", "bc"));
  // The lengths 1 and 2, CRC-32 of "abc" = 0x352441C2, and the checksum of these twelve bytes.
  const std::string bytes = readFile(file());
  ASSERT_EQ(bytes.size(), 8U + 16U + 3U);
  EXPECT_EQ(bytes.substr(0, 8), "KELPKV1\n");
  EXPECT_EQ(bytes.substr(8, 12), std::string("\1\0\0\0\2\0\0\0\xC2\x41\x24\x35", 12));
  EXPECT_EQ(bytes.substr(24), "abc");
}

TEST_F(StoreForm, TheMagicAloneIsAStoreWithoutKeys) {
  writeFile(file(), storeMagic());
  KeyValueStore store = open();
  EXPECT_TRUE(store.isReady());
  EXPECT_EQ(store.get(""), std::nullopt);
  ASSERT_TRUE(store.set("key", "value"));
  EXPECT_EQ(readFile(file()), storeMagic() + storeRecord({"key", "value"}));
}

TEST_F(StoreForm, ARemovalOfAKeyThatWasNeverThereIsRead) {
  const StoreLog log({{"absent", std::nullopt}, {"key", "value"}, {"absent", std::nullopt}});
  writeFile(file(), log.bytes());
  KeyValueStore store = open();
  EXPECT_TRUE(store.isReady());
  EXPECT_EQ(readKeys(store, {"absent", "key"}), log.state());
}

}  // namespace
}  // namespace KELP::Test
