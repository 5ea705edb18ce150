// A device's own store behind the library's header: all stores live in the process's memory, by
// path. An empty file stands for each, since a report is recognised by its files.

#include <os/keyvaluestore.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace KELP::OS {
namespace {

using Entries = std::map<std::string, std::string>;

Entries& entriesOf(const std::string& path) {
  static std::map<std::string, Entries> stores;
  return stores[path];
}

}  // namespace

class KeyValueStore::Impl {
 public:
  explicit Impl(const std::string& path) : entries(entriesOf(path)) {}

  Entries& entries;
};

KeyValueStore::KeyValueStore() = default;

KeyValueStore::KeyValueStore(const std::string& path, std::string /*name*/, Options options) {
  if (options.test(KVStoreOpenOption::CreateIfMissing)) {
    std::ofstream(path, std::ios::app).flush();
  }
  if (std::filesystem::exists(path)) {
    impl_ = std::make_unique<Impl>(path);
  }
}

KeyValueStore::~KeyValueStore() = default;

std::optional<std::string> KeyValueStore::get(const std::string& key) {
  if (!isReady()) {
    return std::nullopt;
  }
  const auto found = impl_->entries.find(key);
  return found == impl_->entries.end() ? std::nullopt : std::optional(found->second);
}

bool KeyValueStore::set(const std::string& key, const std::string& value) {
  if (!isReady()) {
    return false;
  }
  impl_->entries[key] = value;
  return true;
}

bool KeyValueStore::remove(const std::string& key) {
  if (!isReady()) {
    return false;
  }
  impl_->entries.erase(key);
  return true;
}

bool KeyValueStore::sync() {
  return isReady();
}

bool KeyValueStore::isReady() {
  return impl_ != nullptr;
}

}  // namespace KELP::OS
