#pragma once

#include <string>
#include <vector>

namespace KELP::Test {

/** Runs a shell with kelp-diagnostics in its path. @return the lines that it prints. Fails the test
 * when the shell fails. */
[[nodiscard]] std::vector<std::string> linesOfShell(const std::vector<std::string>& command);

}  // namespace KELP::Test
