// A store leaves no descriptor behind.

#include "unit/os/storefixture.h"

namespace KELP::Test {
namespace {

namespace fs = std::filesystem;

std::size_t openDescriptors() {
  return entriesOf("/proc/self/fd").size();
}

/** The number of descriptors at construction must be that at the end. */
class StoreDescriptors : public StoreTest {
 protected:
  ~StoreDescriptors() override { EXPECT_EQ(openDescriptors(), before_); }
  [[nodiscard]] std::size_t extra() const { return openDescriptors() - before_; }

 private:
  const std::size_t before_ = openDescriptors();
};

TEST_F(StoreDescriptors, AreAllClosedWithTheStore) {
  for (unsigned long options = 0; options < 32; ++options) {
    { ASSERT_TRUE(open().set("key", "value")); }
    KeyValueStore store = open(options);
    EXPECT_EQ(store.get("key"), "value");
    store.set("key", "other");
    store.remove("key");
    store.sync();
  }
  EXPECT_EQ(extra(), 0U);
}

TEST_F(StoreDescriptors, DoNotGrowWithChangesAndCompactions) {
  KeyValueStore store = open();
  KeyValueStore reader = open();
  ASSERT_TRUE(store.set("key", "value"));
  ASSERT_EQ(reader.get("key"), "value");
  const std::size_t open = extra();
  for (int i = 0; i < 100; ++i) {
    ASSERT_TRUE(store.set("key", std::string(5000, 'x')));
    ASSERT_TRUE(reader.get("key").has_value());
    ASSERT_EQ(extra(), open);
  }
}

TEST_F(StoreDescriptors, DoNotGrowWithARefusedStore) {
  writeFile(file(), sampleLog().bytes() + std::string(40, '#'));
  KeyValueStore damaged = open();
  KeyValueStore missing = openStore(directory() / "missing", 0);
  KeyValueStore directoryInPlace = openStore(directory().path());
  const std::size_t open = extra();
  for (int i = 0; i < 10; ++i) {
    expectNotReady(damaged);
    expectNotReady(missing);
    expectNotReady(directoryInPlace);
    ASSERT_EQ(extra(), open);
  }
}

TEST_F(StoreDescriptors, DoNotGrowWhenTheFileIsReplacedOrRemoved) {
  KeyValueStore store = open();
  ASSERT_TRUE(store.set("key", "value"));
  const std::size_t open = extra();
  for (int i = 0; i < 20; ++i) {
    writeFile(directory() / "new", sampleLog().bytes());
    fs::rename(directory() / "new", file());
    ASSERT_TRUE(store.set("key", "value"));
    ASSERT_TRUE(store.get("key").has_value());
    fs::remove(file());
    ASSERT_FALSE(store.set("key", "value"));
    ASSERT_LE(extra(), open);
  }
}

}  // namespace
}  // namespace KELP::Test
