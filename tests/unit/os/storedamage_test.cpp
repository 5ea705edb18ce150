// Bytes that were changed: no wrong value is ever read, and a damaged file stays as it is.

#include "support/logcapture.h"
#include "unit/os/directoryevents.h"
#include "unit/os/storefixture.h"

#include <gmock/gmock.h>

namespace KELP::Test {
namespace {

/** How a byte is changed. */
struct Change {
  const char* name;
  unsigned char (*changed)(unsigned char);
};

class StoreDamage : public StoreTest, public ::testing::WithParamInterface<Change> {
 protected:
  /** Writes @p log's file with the byte at @p at changed. @return false when it stayed the same. */
  bool damage(const StoreLog& log, std::size_t at) {
    bytes_ = log.bytes();
    bytes_[at] = static_cast<char>(GetParam().changed(static_cast<unsigned char>(bytes_[at])));
    writeFile(file(), bytes_);
    return bytes_ != log.bytes();
  }
  [[nodiscard]] const std::string& bytes() const { return bytes_; }

 private:
  std::string bytes_;
};

INSTANTIATE_TEST_SUITE_P(
    , StoreDamage,
    ::testing::Values(Change{"Bit0", [](unsigned char c) -> unsigned char { return c ^ 0x01U; }},
                      Change{"Bit1", [](unsigned char c) -> unsigned char { return c ^ 0x02U; }},
                      Change{"Bit2", [](unsigned char c) -> unsigned char { return c ^ 0x04U; }},
                      Change{"Bit3", [](unsigned char c) -> unsigned char { return c ^ 0x08U; }},
                      Change{"Bit4", [](unsigned char c) -> unsigned char { return c ^ 0x10U; }},
                      Change{"Bit5", [](unsigned char c) -> unsigned char { return c ^ 0x20U; }},
                      Change{"Bit6", [](unsigned char c) -> unsigned char { return c ^ 0x40U; }},
                      Change{"Bit7", [](unsigned char c) -> unsigned char { return c ^ 0x80U; }},
                      Change{"AllBits", [](unsigned char c) -> unsigned char { return c ^ 0xFFU; }},
                      Change{"ToZero", [](unsigned char) -> unsigned char { return 0; }},
                      Change{"ToOnes", [](unsigned char) -> unsigned char { return 0xFF; }}),
    [](const auto& instance) { return instance.param.name; });

TEST_P(StoreDamage, BeforeTheLastRecordIsDetectedAndLeftAsItIs) {
  const StoreLog log = sampleLog();
  const LogCapture logged;
  for (std::size_t at = 0; at < log.recordStart(log.recordCount() - 1); ++at) {
    if (!damage(log, at)) continue;
    SCOPED_TRACE("byte " + std::to_string(at));
    {
      KeyValueStore store = open();
      expectNotReady(store);
      EXPECT_EQ(readKeys(store, log.keys()), StoreMap());
    }
    EXPECT_EQ(readFile(file()), bytes());
    if (HasFailure()) return;
  }
  EXPECT_THAT(logged.lines(), ::testing::IsEmpty());
}

/** The last record is a value, or a removal. */
std::vector<StoreLog> logsByLastRecord() {
  return {sampleLog(), StoreLog({{"key", "old"}, {"other", "x"}, {"key", std::nullopt}}),
          StoreLog(std::vector<StoreChange>{{"key", "only"}})};
}

TEST_P(StoreDamage, InTheHeaderOfTheLastRecordNeverGivesAWrongValue) {
  for (const StoreLog& log : logsByLastRecord()) {
    const std::size_t last = log.recordCount() - 1;
    for (std::size_t at = log.recordStart(last); at < log.recordStart(last) + 16; ++at) {
      if (!damage(log, at)) continue;
      SCOPED_TRACE("byte " + std::to_string(at));
      KeyValueStore store = open();
      const StoreMap found = readKeys(store, log.keys());
      if (store.isReady()) {
        EXPECT_EQ(found, log.stateAfter(last));
      } else {
        EXPECT_EQ(found, StoreMap());
        expectNotReady(store);
      }
      EXPECT_EQ(readFile(file()), bytes());
    }
  }
}

TEST_P(StoreDamage, InTheBodyOfTheLastRecordIsATornTail) {
  for (const StoreLog& log : logsByLastRecord()) {
    const std::size_t last = log.recordCount() - 1;
    for (std::size_t at = log.recordStart(last) + 16; at < log.bytes().size(); ++at) {
      if (!damage(log, at)) continue;
      SCOPED_TRACE("byte " + std::to_string(at));
      KeyValueStore store = open();
      EXPECT_TRUE(store.isReady());
      EXPECT_EQ(readKeys(store, log.keys()), log.stateAfter(last));
      EXPECT_EQ(readFile(file()), bytes());
      EXPECT_TRUE(store.set("next", "value"));
      EXPECT_EQ(readFile(file()),
                log.bytes().substr(0, log.recordStart(last)) + storeRecord({"next", "value"}));
    }
  }
}

class StoreDamagedWhileOpen : public StoreTest {
 protected:
  void append(const std::string& bytes) { writeFile(file(), readFile(file()) + bytes); }
};

TEST_F(StoreDamagedWhileOpen, IsNotReadyAndLeftAsItIs) {
  KeyValueStore store = open();
  ASSERT_TRUE(store.set("report_id", "value"));
  append("these sixteen or more bytes are no record at all");
  const std::string damaged = readFile(file());
  DirectoryEvents events(directory().path());
  expectNotReady(store);
  EXPECT_EQ(readFile(file()), damaged);
  EXPECT_THAT(events.take(), ::testing::IsEmpty());
}

TEST_F(StoreDamagedWhileOpen, RefusesAChangeThatIsTheFirstToMeetTheDamage) {
  KeyValueStore store = open();
  ASSERT_TRUE(store.set("report_id", "value"));
  append("these sixteen or more bytes are no record at all");
  const std::string damaged = readFile(file());
  DirectoryEvents events(directory().path());
  EXPECT_FALSE(store.set("report_id", "next"));
  EXPECT_EQ(readFile(file()), damaged);
  EXPECT_THAT(events.take(), ::testing::IsEmpty());
}

TEST_F(StoreDamagedWhileOpen, IsReadyAgainWhenAGoodFileTakesItsPlace) {
  KeyValueStore store = open();
  ASSERT_TRUE(store.set("report_id", "value"));
  const std::string good = readFile(file());
  append("these sixteen or more bytes are no record at all");
  ASSERT_FALSE(store.isReady());
  writeFile(directory() / "mended", good);
  std::filesystem::rename(directory() / "mended", file());
  EXPECT_TRUE(store.isReady());
  EXPECT_EQ(store.get("report_id"), "value");
  EXPECT_TRUE(store.set("report_id", "next"));
  EXPECT_EQ(open().get("report_id"), "next");
}

TEST_F(StoreDamagedWhileOpen, ARecordThatFollowsATornBodyIsDamage) {
  std::string torn = storeRecord({"key", "new"});
  torn.back() = '?';
  const std::string bytes = storeMagic() + storeRecord({"key", "old"}) + torn;
  writeFile(file(), bytes);
  KeyValueStore store = open();
  ASSERT_EQ(store.get("key"), "old");
  append(storeRecord({"other", "value"}));
  expectNotReady(store, "key");
}

}  // namespace
}  // namespace KELP::Test
