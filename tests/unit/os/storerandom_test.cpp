// Random operations by several objects on one file, compared with one map.

#include "unit/os/storefixture.h"

#include <array>
#include <random>

namespace KELP::Test {
namespace {

constexpr std::size_t kObjects = 4;
constexpr int kSteps = 6000;
constexpr std::size_t kKeys = 25;

class StoreRandom : public StoreTest, public ::testing::WithParamInterface<unsigned> {
 protected:
  [[nodiscard]] std::size_t below(std::size_t limit) { return random_() % limit; }

  [[nodiscard]] std::string someKey() { return keys_[below(keys_.size())]; }

  [[nodiscard]] std::string someValue() {
    static constexpr std::array<std::size_t, 6> kLimits{1, 10, 100, 1000, 5000, 30'000};
    return patternValue(random_(), below(kLimits[below(kLimits.size())]));
  }

  [[nodiscard]] std::unique_ptr<KeyValueStore> openOne() {
    return std::make_unique<KeyValueStore>(file().string(), "metadata",
                                           KeyValueStore::Options::fromValue(kReportOptions));
  }

  void step(std::unique_ptr<KeyValueStore>& store) {
    const std::string key = someKey();
    const std::size_t choice = below(100);
    if (choice < 40) {
      const std::string value = someValue();
      ASSERT_TRUE(store->set(key, value));
      expected_[key] = value;
    } else if (choice < 55) {
      ASSERT_TRUE(store->remove(key));
      expected_.erase(key);
    } else if (choice < 90) {
      const auto found = expected_.find(key);
      ASSERT_EQ(
          describeValue(store->get(key)),
          describeValue(found == expected_.end() ? std::nullopt : std::optional(found->second)));
    } else if (choice < 95) {
      store = openOne();
    } else {
      ASSERT_TRUE(store->isReady());
    }
  }

  void checkAll(KeyValueStore& store) {
    ASSERT_EQ(decodeStore(readFile(file())), expected_);
    ASSERT_EQ(readKeys(store, keys_), expected_);
  }

 private:
  static std::vector<std::string> makeKeys() {
    std::vector<std::string> keys{""};
    for (std::size_t i = 1; i < kKeys; ++i) {
      keys.push_back(patternValue(i, i));
    }
    return keys;
  }

  std::mt19937 random_{GetParam()};
  const std::vector<std::string> keys_ = makeKeys();
  StoreMap expected_;
};

INSTANTIATE_TEST_SUITE_P(Seed, StoreRandom, ::testing::Values(1U, 20U, 300U, 4000U));

TEST_P(StoreRandom, ObjectsOnOneFileBehaveAsOneMap) {
  SCOPED_TRACE("seed " + std::to_string(GetParam()));
  std::array<std::unique_ptr<KeyValueStore>, kObjects> stores;
  for (auto& store : stores) {
    store = openOne();
  }
  for (int i = 0; i < kSteps; ++i) {
    ASSERT_NO_FATAL_FAILURE(step(stores[below(kObjects)])) << "step " << i;
    if (i % 100 == 0) {
      ASSERT_NO_FATAL_FAILURE(checkAll(*stores[below(kObjects)])) << "step " << i;
    }
  }
  for (auto& store : stores) {
    checkAll(*store);
  }
}

}  // namespace
}  // namespace KELP::Test
