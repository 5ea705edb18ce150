#include "unit/os/storefixture.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace KELP::Test {

KeyValueStore openStore(const std::filesystem::path& file, unsigned long options) {
  return {file.string(), "metadata", KeyValueStore::Options::fromValue(options)};
}

StoreMap readKeys(KeyValueStore& store, const std::vector<std::string>& keys) {
  StoreMap found;
  for (const std::string& key : keys) {
    if (auto value = store.get(key)) {
      found.emplace(key, std::move(*value));
    }
  }
  return found;
}

void expectNotReady(KeyValueStore& store, const std::string& anyKey) {
  EXPECT_FALSE(store.isReady());
  EXPECT_EQ(store.get(anyKey), std::nullopt);
  EXPECT_FALSE(store.set(anyKey, "new"));
  EXPECT_FALSE(store.remove(anyKey));
  EXPECT_FALSE(store.remove("a key that was never there"));
  EXPECT_FALSE(store.sync());
  EXPECT_FALSE(store.isReady());
}

struct stat statusOf(const std::filesystem::path& file) {
  struct stat status {};
  if (::lstat(file.c_str(), &status) != 0) {
    throw std::system_error(errno, std::system_category(), file.string());
  }
  return status;
}

bool unchanged(const struct stat& before, const struct stat& after) {
  const auto same = [](const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
  };
  return before.st_ino == after.st_ino && before.st_size == after.st_size &&
         before.st_mode == after.st_mode && same(before.st_mtim, after.st_mtim) &&
         same(before.st_ctim, after.st_ctim);
}

std::vector<std::string> entriesOf(const std::filesystem::path& directory) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace KELP::Test
