#include "integration/store/actor.h"

#include "support/startedby.h"

#include <utility>

namespace KELP::Test {

Actor::Actor(std::vector<std::string> starter)
    : process_(startedBy(std::move(starter), {STORE_ACTOR})) {}

std::string Actor::ask(const std::string& command) {
  tell(command);
  return answer();
}

std::string Actor::answer(std::chrono::milliseconds limit) {
  return process_.receive(limit).value_or("(no answer)");
}

bool Actor::open(const std::filesystem::path& file, unsigned long options) {
  return ask("open " + file.string() + ' ' + std::to_string(options)) == "true";
}

bool Actor::set(const std::string& key, std::uint64_t seed, std::size_t size) {
  return ask("set " + key + ' ' + std::to_string(seed) + ' ' + std::to_string(size)) == "true";
}

bool Actor::remove(const std::string& key) {
  return ask("remove " + key) == "true";
}

std::string Actor::get(const std::string& key) {
  return ask("get " + key);
}

std::string describePattern(std::uint64_t seed, std::size_t size) {
  return describeValue(patternValue(seed, size));
}

}  // namespace KELP::Test
