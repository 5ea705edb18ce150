#pragma once

#include <os/keyvaluestore.h>

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace KELP::Test {

/** A store that keeps its keys in memory, notes every operation, and refuses changes on demand. */
class MemoryStore : public OS::KeyValueStore {
 public:
  MemoryStore() = default;

  std::optional<std::string> get(const std::string& key) override {
    calls_.push_back("get " + key);
    const auto found = texts.find(key);
    return found == texts.end() ? std::nullopt : std::optional(found->second);
  }
  bool set(const std::string& key, const std::string& value) override {
    calls_.push_back("set " + key + "=" + value);
    if (!refusesChanges) texts[key] = value;
    return !refusesChanges;
  }
  bool remove(const std::string& key) override {
    calls_.push_back("remove " + key);
    if (!refusesChanges) texts.erase(key);
    return !refusesChanges;
  }
  bool sync() override {
    calls_.emplace_back("sync");
    return true;
  }
  bool isReady() override {
    calls_.emplace_back("isReady");
    return true;
  }

  /** The operations since the last call, in order: "get KEY", "set KEY=TEXT", "remove KEY". */
  [[nodiscard]] std::vector<std::string> takeCalls() { return std::exchange(calls_, {}); }

  std::map<std::string, std::string> texts;
  bool refusesChanges = false;

 private:
  std::vector<std::string> calls_;
};

}  // namespace KELP::Test
