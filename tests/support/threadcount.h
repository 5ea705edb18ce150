#pragma once

#include <cstddef>

namespace KELP::Test {

/** The kernel's own count of this process's threads: while one ends, listing them leaves others
 * out. A thread that was joined is counted for a moment longer. */
[[nodiscard]] std::size_t threadCount();

}  // namespace KELP::Test
