#pragma once

#include "check/finding.h"

#include <filesystem>

namespace KELP::Tool {

/**
 * Mends what can be mended without losing data, each report under its write lock, for which nobody
 * is waited for, and only what is still so then. Says in each finding whether it is mended, or why
 * not. Throws Interrupted when a signal comes; the findings say then what was done until that.
 *
 * @param findings those of one report follow one another.
 */
void repair(const std::filesystem::path& root, Findings& findings);

}  // namespace KELP::Tool
