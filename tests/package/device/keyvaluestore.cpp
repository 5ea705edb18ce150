// A device's own store behind the library's header: all stores live in the process's memory, by
// path. An empty file stands for each, since a report is recognised by its files.

#include "questions.h"

#include <os/keyvaluestore.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

std::vector<std::string> Device::questions;
bool Device::storesAreReady = true;

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

  [[nodiscard]] std::optional<std::string> find(const std::string& key) const {
    const auto found = entries.find(key);
    return found == entries.end() ? std::nullopt : std::optional(found->second);
  }

  Entries& entries;
};

KeyValueStore::KeyValueStore() = default;

KeyValueStore::KeyValueStore(const std::string& path, std::string name, Options options) {
  Device::questions.push_back("open " + name + " with " + std::to_string(options.value()));
  if (options.test(KVStoreOpenOption::CreateIfMissing)) {
    std::ofstream(path, std::ios::app).flush();
  }
  if (std::filesystem::exists(path)) {
    impl_ = std::make_unique<Impl>(path);
  }
}

KeyValueStore::~KeyValueStore() = default;

std::optional<std::string> KeyValueStore::get(const std::string& key) {
  Device::questions.push_back("get " + key);
  return impl_ ? impl_->find(key) : std::nullopt;
}

bool KeyValueStore::set(const std::string& key, const std::string& value) {
  if (impl_) {
    impl_->entries[key] = value;
  }
  return impl_ != nullptr;
}

bool KeyValueStore::remove(const std::string& key) {
  if (impl_) {
    impl_->entries.erase(key);
  }
  return impl_ != nullptr;
}

bool KeyValueStore::sync() {
  return impl_ != nullptr;
}

bool KeyValueStore::isReady() {
  Device::questions.emplace_back("ready");
  return impl_ != nullptr && Device::storesAreReady;
}

}  // namespace KELP::OS
