#pragma once

#include <chrono>
#include <functional>

namespace KELP::Test {

/** How long a test waits for what has to come. */
constexpr std::chrono::seconds kLongestWait{30};

/** Looks now and then whether @p condition holds, for what nobody tells of. @return whether it came
 *  to hold in time. */
bool waitUntil(const std::function<bool()>& condition);

}  // namespace KELP::Test
