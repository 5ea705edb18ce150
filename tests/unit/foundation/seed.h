#pragma once

#include "support/setting.h"

#include <random>
#include <string>

namespace KELP::Test {

/** The seed of tests with random input: always the same, unless KELP_TEST_SEED asks for another. */
[[nodiscard]] inline unsigned testSeed() {
  constexpr unsigned kUsual = 20'240'611;
  return static_cast<unsigned>(setting("KELP_TEST_SEED", kUsual));
}

/** For SCOPED_TRACE, so that a failure can be repeated. */
[[nodiscard]] inline std::string seedNote() {
  return "KELP_TEST_SEED=" + std::to_string(testSeed());
}

/** A number from @p low to @p high, both included. */
[[nodiscard]] inline int randomNumber(std::mt19937& random, int low, int high) {
  return std::uniform_int_distribution<int>(low, high)(random);
}

}  // namespace KELP::Test
