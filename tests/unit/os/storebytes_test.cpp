// Keys and values are byte strings, and come back as they were.

#include "unit/os/storefixture.h"

namespace KELP::Test {
namespace {

using namespace std::string_literals;

constexpr std::size_t kLargeSize = 16 * 1024 * 1024;

struct Bytes {
  const char* name;
  std::string bytes;
};

class StoreBytes : public StoreTest, public ::testing::WithParamInterface<Bytes> {
 protected:
  /** What a new object on the file reads. */
  [[nodiscard]] std::optional<std::string> readAnew(const std::string& key) const {
    return open().get(key);
  }
};

INSTANTIATE_TEST_SUITE_P(
    , StoreBytes,
    ::testing::Values(Bytes{"Text", "report_id"}, Bytes{"Empty", ""}, Bytes{"OneNul", "\0"s},
                      Bytes{"EmbeddedNuls", "\0a\0\0b\0"s}, Bytes{"LineEnds", "\n\r\n\n"},
                      Bytes{"InvalidUtf8", "\xff\xfe\x80\xc0\xaf\xed\xa0\x80"},
                      Bytes{"AllBytes", patternValue(1, 70000)},
                      Bytes{"Magic", storeMagic() + storeRecord({"key", "value"})},
                      Bytes{"Zeros", std::string(5000, '\0')}, Bytes{"Ones", "\xff\xff\xff\xff"}),
    [](const auto& instance) { return instance.param.name; });

TEST_P(StoreBytes, ComeBackAsAValue) {
  const std::string& value = GetParam().bytes;
  KeyValueStore store = open();
  ASSERT_TRUE(store.set("key", value));
  EXPECT_EQ(store.get("key"), value);
  EXPECT_EQ(readAnew("key"), value);
}

TEST_P(StoreBytes, ComeBackUnderAKey) {
  const std::string& key = GetParam().bytes;
  KeyValueStore store = open();
  ASSERT_TRUE(store.set(key, "value"));
  ASSERT_TRUE(store.set(key + "x", "longer"));
  EXPECT_EQ(store.get(key), "value");
  EXPECT_EQ(readAnew(key), "value");
  EXPECT_EQ(readAnew(key + "x"), "longer");
}

TEST_P(StoreBytes, AreRemovedAsAKey) {
  const std::string& key = GetParam().bytes;
  KeyValueStore store = open();
  ASSERT_TRUE(store.set(key, "value"));
  ASSERT_TRUE(store.set(key + "x", "longer"));
  ASSERT_TRUE(store.remove(key));
  EXPECT_EQ(store.get(key), std::nullopt);
  EXPECT_EQ(readAnew(key), std::nullopt);
  EXPECT_EQ(readAnew(key + "x"), "longer");
}

using StoreLargeValue = StoreTest;

TEST_F(StoreLargeValue, ComesBackAsItWas) {
  const std::string value = patternValue(2, kLargeSize);
  KeyValueStore store = open();
  ASSERT_TRUE(store.set("large", value));
  ASSERT_TRUE(store.set("small", "1"));
  EXPECT_TRUE(store.get("large") == value);
  KeyValueStore other = open();
  EXPECT_TRUE(other.get("large") == value);
  EXPECT_EQ(other.get("small"), "1");
}

TEST_F(StoreLargeValue, IsReplacedByAnotherOneForAnOpenReader) {
  KeyValueStore writer = open();
  KeyValueStore reader = open();
  for (const std::uint64_t seed : {3U, 4U, 5U, 6U, 7U, 8U}) {
    const std::string value = patternValue(seed, kLargeSize - seed);
    ASSERT_TRUE(writer.set("large", value));
    EXPECT_TRUE(reader.get("large") == value) << seed;
  }
}

TEST_F(StoreLargeValue, ThatCannotFitIntoAFileIsRefusedAndChangesNothing) {
  KeyValueStore store = open();
  ASSERT_TRUE(store.set("key", "value"));
  const std::string before = readFile(file());
  const std::string tooLarge(std::size_t{256} * 1024 * 1024, 'x');
  EXPECT_FALSE(store.set("key", tooLarge));
  EXPECT_FALSE(store.set(tooLarge, "value"));
  EXPECT_EQ(readFile(file()), before);
  EXPECT_EQ(store.get("key"), "value");
  EXPECT_TRUE(store.set("key", "next"));
  EXPECT_EQ(store.get("key"), "next");
}

using StoreRemove = StoreTest;

TEST_F(StoreRemove, OfAnAbsentKeyIsTrueAndWritesNothing) {
  KeyValueStore store = open();
  EXPECT_TRUE(store.remove("absent"));
  EXPECT_EQ(readFile(file()), "");
  ASSERT_TRUE(store.set("key", "value"));
  const std::string before = readFile(file());
  EXPECT_TRUE(store.remove("absent"));
  EXPECT_EQ(readFile(file()), before);
}

TEST_F(StoreRemove, TakesTheKeyAwayOnceAndForAllObjects) {
  KeyValueStore store = open();
  KeyValueStore other = open();
  ASSERT_TRUE(store.set("key", "value"));
  ASSERT_EQ(other.get("key"), "value");
  EXPECT_TRUE(other.remove("key"));
  EXPECT_EQ(store.get("key"), std::nullopt);
  const std::string before = readFile(file());
  EXPECT_TRUE(store.remove("key")) << "it is absent by now";
  EXPECT_EQ(readFile(file()), before);
  EXPECT_TRUE(store.set("key", "again"));
  EXPECT_EQ(other.get("key"), "again");
}

}  // namespace
}  // namespace KELP::Test
