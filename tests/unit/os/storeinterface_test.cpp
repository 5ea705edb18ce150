// The class as clients and derived doubles see it.

#include "unit/os/storefixture.h"

#include <cstring>
#include <type_traits>

namespace KELP::Test {
namespace {

static_assert(!std::is_copy_constructible_v<KeyValueStore>);
static_assert(!std::is_copy_assignable_v<KeyValueStore>);
static_assert(!std::is_move_constructible_v<KeyValueStore>);
static_assert(!std::is_move_assignable_v<KeyValueStore>);
static_assert(!std::is_default_constructible_v<KeyValueStore>, "only derived classes may");
static_assert(std::has_virtual_destructor_v<KeyValueStore>);
static_assert(std::is_constructible_v<KeyValueStore, const std::string&, std::string,
                                      OS::EnumBitset<Option, 5>>);

static_assert(static_cast<int>(Option::ReadOnly) == 0);
static_assert(static_cast<int>(Option::SyncEachWrite) == 1);
static_assert(static_cast<int>(Option::CreateIfMissing) == 2);
static_assert(static_cast<int>(Option::Shared) == 3);
static_assert(static_cast<int>(Option::SyncOnClose) == 4);

/** Keeps its keys in memory. */
class MemoryStore : public KeyValueStore {
 public:
  MemoryStore() = default;
  std::optional<std::string> get(const std::string& key) override {
    const auto found = map_.find(key);
    return found == map_.end() ? std::nullopt : std::optional(found->second);
  }
  bool set(const std::string& key, const std::string& value) override {
    map_[key] = value;
    return true;
  }
  bool remove(const std::string& key) override {
    map_.erase(key);
    return true;
  }
  bool sync() override { return true; }
  bool isReady() override { return true; }

 private:
  StoreMap map_;
};

/** Overrides nothing. */
class EmptyStore : public KeyValueStore {
 public:
  EmptyStore() = default;
};

TEST(StoreInterface, TheOptionsOfAReportAreCreateIfMissingSharedAndSyncOnClose) {
  const KeyValueStore::Options options{Option::CreateIfMissing, Option::Shared,
                                       Option::SyncOnClose};
  EXPECT_EQ(options.value(), kReportOptions);
}

TEST(StoreInterface, ADerivedDoubleIsUsedThroughTheBaseClass) {
  MemoryStore memory;
  KeyValueStore& store = memory;
  EXPECT_TRUE(store.isReady());
  EXPECT_TRUE(store.set("key", "value"));
  EXPECT_EQ(store.get("key"), "value");
  EXPECT_TRUE(store.remove("key"));
  EXPECT_EQ(store.get("key"), std::nullopt);
  EXPECT_TRUE(store.sync());
}

TEST(StoreInterface, AStoreWithoutAFileBehavesAsOneThatIsNotReady) {
  EmptyStore store;
  expectNotReady(store);
}

#if defined(__x86_64__)
/** The number of the entry in the table of virtual operations, as the platform's ABI encodes it. */
template <typename Member>
std::size_t tableEntry(Member member) {
  std::size_t encoded = 0;
  std::memcpy(&encoded, &member, sizeof encoded);
  return (encoded - 1) / sizeof(void*);
}

TEST(StoreInterface, TheVirtualOperationsFollowTheDestructorInTheirOrder) {
  EXPECT_EQ(tableEntry(&KeyValueStore::get), 2U);
  EXPECT_EQ(tableEntry(&KeyValueStore::set), 3U);
  EXPECT_EQ(tableEntry(&KeyValueStore::remove), 4U);
  EXPECT_EQ(tableEntry(&KeyValueStore::sync), 5U);
  EXPECT_EQ(tableEntry(&KeyValueStore::isReady), 6U);
}
#endif

}  // namespace
}  // namespace KELP::Test
