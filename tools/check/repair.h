#pragma once

#include "check/finding.h"

#include <filesystem>

namespace KELP::Tool {

/**
 * Mends what can be mended without losing data, each report under its write lock, for which nobody
 * is waited for. Says in each finding whether it is mended, or why not.
 *
 * @param findings those of one report follow one another.
 */
void repair(const std::filesystem::path& root, Findings& findings);

}  // namespace KELP::Tool
