#pragma once

#include <map>
#include <string>

namespace KELP::Test {

/** The open descriptors of a process, and what each is open on; without the one that lists them.
 *  @param process is its number, or "self". */
[[nodiscard]] std::map<int, std::string> descriptorsOf(const std::string& process);

}  // namespace KELP::Test
