#pragma once

#include <cstdint>
#include <cstdlib>
#include <string>

namespace KELP::Test {

/** The number in the environment variable @p name, or @p usual when there is none. Throws for what
 * is no number. */
[[nodiscard]] inline std::uint64_t setting(const char* name, std::uint64_t usual) {
  const char* const asked = std::getenv(name);
  return asked == nullptr ? usual : std::stoull(asked);
}

}  // namespace KELP::Test
