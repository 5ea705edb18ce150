// What a power cut or a killed writer leaves: a file whose end is missing, zero or not yet written.

#include "unit/os/directoryevents.h"
#include "unit/os/storefixture.h"

namespace KELP::Test {
namespace {

const StoreChange kNext{"next", "after the cut"};

/** Opens a store whose file has something useless after its whole records. */
class TornStore : public StoreTest {
 protected:
  /** Fails unless the file opens with the first @p records of @p log and every kind of first change
   *  drops what comes after them. @p wholeBytes is what must remain of the file. */
  void expectOpensAndRecovers(const std::string& bytes, const StoreLog& log, std::size_t records) {
    const StoreMap& state = log.stateAfter(records);
    const std::string whole = log.bytes().substr(0, log.recordStart(records));
    expectReads(bytes, log, state);
    expectDropsTheRest(bytes, whole, state, log, kNext);
    if (!state.empty()) {
      expectDropsTheRest(bytes, whole, state, log, {state.begin()->first, std::nullopt});
    }
  }

 private:
  void expectReads(const std::string& bytes, const StoreLog& log, const StoreMap& state) {
    writeFile(file(), bytes);
    KeyValueStore store = open();
    EXPECT_TRUE(store.isReady());
    EXPECT_EQ(readKeys(store, log.keys()), state);
    EXPECT_TRUE(store.remove("absent")) << "which writes nothing";
    EXPECT_EQ(readFile(file()), bytes) << "reading mended the file";
  }

  void expectDropsTheRest(const std::string& bytes, const std::string& whole, StoreMap state,
                          const StoreLog& log, const StoreChange& change) {
    std::vector<std::string> keys = log.keys();
    keys.push_back(change.key);
    applyChange(change, state);
    writeFile(file(), bytes);
    KeyValueStore store = open();
    KeyValueStore openReader = open();
    EXPECT_TRUE(change.value ? store.set(change.key, *change.value) : store.remove(change.key));
    EXPECT_EQ(readFile(file()), whole + storeRecord(change));
    KeyValueStore newReader = open();
    for (KeyValueStore* reader : {&store, &openReader, &newReader}) {
      EXPECT_EQ(readKeys(*reader, keys), state);
    }
  }
};

using StoreCut = TornStore;

TEST_F(StoreCut, AtAnyByteOpensWithTheStateAfterItsLastWholeRecord) {
  const StoreLog log = sampleLog();
  for (std::size_t size = 0; size <= log.bytes().size(); ++size) {
    SCOPED_TRACE("cut to " + std::to_string(size) + " of " + std::to_string(log.bytes().size()));
    expectOpensAndRecovers(log.bytes().substr(0, size), log, log.wholeRecords(size));
    if (HasFailure()) return;
  }
}

TEST_F(StoreCut, InTheMiddleOfALargeValueOpensWithTheOldValue) {
  const StoreLog log({{"key", "old"}, {"key", patternValue(1, 3'000'000)}});
  for (const std::size_t size : {1'000U, 65'536U, 1'000'000U, 2'999'999U}) {
    SCOPED_TRACE("cut to " + std::to_string(size));
    expectOpensAndRecovers(log.bytes().substr(0, size), log, 1);
  }
}

TEST_F(StoreCut, BehindAnOpenStoreLeavesItTheRest) {
  const StoreLog log = sampleLog();
  writeFile(file(), log.bytes());
  KeyValueStore store = open();
  ASSERT_EQ(readKeys(store, log.keys()), log.state());
  for (std::size_t records = log.recordCount(); records-- > 0;) {
    SCOPED_TRACE(std::to_string(records) + " records left");
    std::filesystem::resize_file(file(), log.recordStart(records) + 5);
    EXPECT_EQ(readKeys(store, log.keys()), log.stateAfter(records));
    EXPECT_TRUE(store.isReady());
  }
  EXPECT_TRUE(store.set("next", "value"));
  EXPECT_EQ(readFile(file()), storeMagic() + storeRecord({"next", "value"}));
}

class StoreZeros : public TornStore, public ::testing::WithParamInterface<std::size_t> {};

INSTANTIATE_TEST_SUITE_P(, StoreZeros,
                         ::testing::Values(1, 2, 3, 4, 7, 8, 12, 15, 16, 17, 31, 32, 33, 100, 4095,
                                           4096, 4097, 12'288, 100'001, 5'000'000));

TEST_P(StoreZeros, AtTheEndAreDropped) {
  const StoreLog log = sampleLog();
  expectOpensAndRecovers(log.bytes() + std::string(GetParam(), '\0'), log, log.recordCount());
}

TEST_P(StoreZeros, AfterTheMagicAreDropped) {
  const StoreLog log({});
  expectOpensAndRecovers(log.bytes() + std::string(GetParam(), '\0'), log, 0);
}

TEST_P(StoreZeros, BeforeAnythingElseAreDamage) {
  const std::string bytes =
      sampleLog().bytes() + std::string(GetParam(), '\0') + storeRecord({"report_id", "second"});
  writeFile(file(), bytes);
  KeyValueStore store = open();
  expectNotReady(store);
  EXPECT_EQ(readFile(file()), bytes);
}

using StoreTornBody = TornStore;

TEST_F(StoreTornBody, AZeroTailInTheLastBodyIsATornTail) {
  const StoreLog log({{"key", "old"}, {"key", patternValue(5, 9000)}});
  for (const std::size_t zeros : {1U, 100U, 4096U, 8999U}) {
    std::string bytes = log.bytes();
    bytes.replace(bytes.size() - zeros, zeros, zeros, '\0');
    ASSERT_NE(bytes, log.bytes());
    SCOPED_TRACE(std::to_string(zeros) + " zeros");
    expectOpensAndRecovers(bytes, log, 1);
  }
}

TEST_F(StoreTornBody, ReplacedByARecordOfTheSameSizeIsSeenByAnOpenReader) {
  const StoreLog log({{"key", "old"}, {"key", "new"}});
  std::string torn = log.bytes();
  torn.back() = '?';
  writeFile(file(), torn);
  KeyValueStore reader = open();
  ASSERT_EQ(reader.get("key"), "old");
  KeyValueStore writer = open();
  ASSERT_TRUE(writer.set("key", "new"));
  ASSERT_EQ(readFile(file()), log.bytes()) << "the file has the size that the reader knows";
  EXPECT_EQ(reader.get("key"), "new");
}

TEST_F(StoreTornBody, CompletedLaterIsReadThen) {
  const StoreLog log = sampleLog();
  const std::size_t cut = log.recordStart(log.recordCount() - 1) + 20;
  writeFile(file(), log.bytes().substr(0, cut));
  KeyValueStore reader = open();
  ASSERT_EQ(readKeys(reader, log.keys()), log.stateAfter(log.recordCount() - 1));
  writeFile(file(), log.bytes());
  EXPECT_EQ(readKeys(reader, log.keys()), log.state());
}

}  // namespace
}  // namespace KELP::Test
