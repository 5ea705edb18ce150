// Lengths that no store ever wrote: told from the file's size and limits before memory is taken.

#include "unit/os/storefixture.h"

#include <chrono>

namespace KELP::Test {
namespace {

constexpr std::chrono::seconds kQuickly{10};

struct Lengths {
  const char* name;
  std::uint32_t key;
  std::uint32_t value;
};

class StoreLyingLengths : public StoreTest, public ::testing::WithParamInterface<Lengths> {
 protected:
  [[nodiscard]] static std::string header() {
    return storeHeader(GetParam().key, GetParam().value, 0x12345678);
  }
};

INSTANTIATE_TEST_SUITE_P(, StoreLyingLengths,
                         ::testing::Values(Lengths{"LargestValue", 3, 0xFFFFFFFE},
                                           Lengths{"LargestKey", 0xFFFFFFFF, 3},
                                           Lengths{"LargestKeyOfARemoval", 0xFFFFFFFF, kRemoval},
                                           Lengths{"LargestBoth", 0xFFFFFFFE, 0xFFFFFFFE},
                                           Lengths{"SumWrapsToZero", 0x80000000, 0x80000000},
                                           Lengths{"SumWrapsToAFew", 0xFFFFFFF0, 0x20},
                                           Lengths{"SumWithHeaderWraps", 0xFFFFFF00, 0xF4},
                                           Lengths{"OverTheLimit", 1, 256 * 1024 * 1024}),
                         [](const auto& instance) { return instance.param.name; });

TEST_P(StoreLyingLengths, MakeTheStoreNotReadyQuickly) {
  const std::string bytes =
      storeMagic() + storeRecord({"report_id", "value"}) + header() + "key and value";
  writeFile(file(), bytes);
  const auto start = std::chrono::steady_clock::now();
  KeyValueStore store = open();
  expectNotReady(store);
  EXPECT_LT(std::chrono::steady_clock::now() - start, kQuickly);
  EXPECT_EQ(readFile(file()), bytes);
}

TEST_P(StoreLyingLengths, BeforeOtherRecordsMakeTheStoreNotReady) {
  const std::string bytes = storeMagic() + header() + "key and value" + sampleLog().bytes();
  writeFile(file(), bytes);
  KeyValueStore store = open();
  expectNotReady(store);
  EXPECT_EQ(readFile(file()), bytes);
}

using StoreLengths = StoreTest;

TEST_F(StoreLengths, ThatRunOverTheEndBelongToARecordCutShort) {
  const std::string whole = storeMagic() + storeRecord({"report_id", "value"});
  for (const auto& [key, value] :
       {std::pair<std::uint32_t, std::uint32_t>{3, 11}, {14, 0}, {14, kRemoval}, {3, 1'000'000}}) {
    SCOPED_TRACE(std::to_string(key) + " and " + std::to_string(value));
    writeFile(file(), whole + storeHeader(key, value, 0) + "key and value");
    KeyValueStore store = open();
    EXPECT_TRUE(store.isReady());
    EXPECT_EQ(store.get("report_id"), "value");
    EXPECT_TRUE(store.set("next", ""));
    EXPECT_EQ(readFile(file()), whole + storeRecord({"next", ""}));
  }
}

TEST_F(StoreLengths, OfAHugeSparseFileMakeItNotReadyQuickly) {
  constexpr std::uintmax_t kHuge = std::uintmax_t{1} << 40U;
  for (const std::string& content : {std::string(), storeMagic(), sampleLog().bytes()}) {
    writeFile(file(), content);
    std::error_code refused;
    std::filesystem::resize_file(file(), kHuge, refused);
    if (refused) GTEST_SKIP() << "no file of 1 TiB here: " << refused.message();
    const auto start = std::chrono::steady_clock::now();
    KeyValueStore store = open();
    expectNotReady(store);
    EXPECT_LT(std::chrono::steady_clock::now() - start, kQuickly);
    EXPECT_EQ(std::filesystem::file_size(file()), kHuge);
  }
}

}  // namespace
}  // namespace KELP::Test
