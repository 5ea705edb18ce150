#include "integration/store/churn.h"

#include <cstdio>

namespace KELP::Test {

std::vector<std::string> churnKeys() {
  return {"churn0", "churn1", "churn2"};
}

StoreChange churnStep(std::uint64_t number) {
  const std::string key = churnKeys()[number % 3];
  if (number % 7 == 0) {
    return {key, std::nullopt};
  }
  return {key, patternValue(number, 1000 + number * 7919 % 7000)};
}

std::string stampedValue(std::uint64_t writer, std::uint64_t number) {
  return std::to_string(writer) + ' ' + std::to_string(number) + ' ' +
         patternValue(writer * 1'000'003 + number, number * 31 % 3000);
}

std::optional<Stamp> readStamp(const std::string& value) {
  unsigned long writer = 0;
  unsigned long number = 0;
  if (std::sscanf(value.c_str(), "%lu %lu ", &writer, &number) != 2 ||
      value != stampedValue(writer, number)) {
    return std::nullopt;
  }
  return Stamp{writer, number};
}

}  // namespace KELP::Test
