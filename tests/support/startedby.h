#pragma once

#include <string>
#include <vector>

namespace KELP::Test {

/** The command that runs @p command by @p starter, a command that takes another one; @p command
 *  itself when there is no starter. */
[[nodiscard]] inline std::vector<std::string> startedBy(std::vector<std::string> starter,
                                                        const std::vector<std::string>& command) {
  starter.insert(starter.end(), command.begin(), command.end());
  return starter;
}

}  // namespace KELP::Test
