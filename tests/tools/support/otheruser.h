#pragma once

#include "tools/support/tool.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace KELP::Test {

/**
 * Runs the program as a user who owns nothing and is in no group.
 *
 * @param check called as that user before the run, if given.
 * @return nothing when this process may not become another user, or that user may not run it.
 */
[[nodiscard]] std::optional<ToolResult> runToolAsNobody(const std::vector<std::string>& arguments,
                                                        const std::function<void()>& check = {});

}  // namespace KELP::Test
