#include "integration/store/actor.h"

namespace KELP::Test {
namespace {

std::vector<std::string> commandOf(std::vector<std::string> wrapper) {
  wrapper.emplace_back(STORE_ACTOR);
  return wrapper;
}

}  // namespace

Actor::Actor(std::vector<std::string> wrapper) : process_(commandOf(std::move(wrapper))) {}

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
