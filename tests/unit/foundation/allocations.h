#pragma once

#include <cstddef>

namespace KELP::Test {

/** How often this thread has asked for memory by `operator new`, whoever's code it ran. */
[[nodiscard]] std::size_t allocationsSoFar();

}  // namespace KELP::Test
