#pragma once

#include "diagnostic/reportplace.h"

#include <filesystem>
#include <system_error>

namespace KELP::Diagnostic {

/**
 * Copies a file, and its mode, over what stands at its place. A symbolic link there is not followed
 * but replaced, and only when the copy is complete; what is no file stays. The codes are those of
 * std::filesystem::copy_file.
 */
std::error_code copyFile(const std::filesystem::path& source, const ReportPlace& place);

}  // namespace KELP::Diagnostic
