// Opening, reading and closing never modify a file, whatever the options.

#include "support/logcapture.h"
#include "unit/os/directoryevents.h"
#include "unit/os/storefixture.h"

#include <gmock/gmock.h>

#include <chrono>

namespace KELP::Test {
namespace {

using ::testing::IsEmpty;

struct Content {
  const char* name;
  std::string bytes;
};

class StoreUnmodified : public StoreTest,
                        public ::testing::WithParamInterface<std::tuple<unsigned long, Content>> {};

INSTANTIATE_TEST_SUITE_P(
    , StoreUnmodified,
    ::testing::Combine(
        ::testing::Range(0UL, 32UL),
        ::testing::Values(Content{"Empty", ""}, Content{"Magic", storeMagic()},
                          Content{"Sample", sampleLog().bytes()},
                          Content{"Torn", sampleLog().bytes() + "torn"},
                          Content{"ZeroTail", sampleLog().bytes() + std::string(99, '\0')},
                          Content{"Large", StoreLog({{"key", std::string(90'000, '1')},
                                                     {"key", std::string(90'000, '2')},
                                                     {"key", "small"}})
                                               .bytes()})),
    [](const auto& instance) {
      return std::get<1>(instance.param).name + std::string("WithOptions") +
             std::to_string(std::get<0>(instance.param));
    });

TEST_P(StoreUnmodified, ByOpeningReadingAndClosing) {
  const auto& [options, content] = GetParam();
  writeFile(file(), content.bytes);
  // An old time, so that any later modification shows however coarse the clock is.
  std::filesystem::last_write_time(
      file(), std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
  const struct stat before = statusOf(file());
  DirectoryEvents events(directory().path());
  const LogCapture logged;
  {
    KeyValueStore store = open(options);
    EXPECT_TRUE(store.isReady());
    for (const std::string& key : sampleLog().keys()) {
      store.get(key);
    }
    EXPECT_EQ(store.get("absent"), std::nullopt);
    EXPECT_TRUE(store.sync());
    EXPECT_TRUE(store.isReady());
  }
  EXPECT_THAT(events.take(), IsEmpty());
  EXPECT_TRUE(unchanged(before, statusOf(file())));
  EXPECT_EQ(readFile(file()), content.bytes);
  EXPECT_EQ(entriesOf(directory().path()), std::vector<std::string>{"metadata.db"});
  EXPECT_THAT(logged.lines(), IsEmpty());
}

TEST_F(StoreTest, AnEmptyFileIsAStoreWithoutKeys) {
  writeFile(file(), "");
  KeyValueStore store = open();
  EXPECT_TRUE(store.isReady());
  EXPECT_EQ(store.get(""), std::nullopt);
  EXPECT_EQ(store.get("key"), std::nullopt);
  EXPECT_TRUE(store.remove("key"));
  EXPECT_TRUE(store.isReady());
  EXPECT_EQ(readFile(file()), "");
}

}  // namespace
}  // namespace KELP::Test
