#pragma once

#include "diagnostic/reportplace.h"

#include <fcntl.h>

#include <filesystem>
#include <system_error>

namespace KELP::Diagnostic {

/**
 * Removes the directory of a report with all that is in it. Who opens the report just then creates
 * its lock file or its store anew; that is removed as well, so often as it takes those who had
 * begun. Who removes it just then takes away what was about to be removed, and perhaps stops for
 * the same reason; so what is left is removed as well.
 */
inline std::error_code removeReportDirectory(const std::filesystem::path& directory) {
  constexpr int kAttempts = 100;
  std::error_code code;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    code = removeTree(AT_FDCWD, directory);
    if (code != std::errc::directory_not_empty && code != std::errc::no_such_file_or_directory) {
      break;
    }
  }
  return code;
}

}  // namespace KELP::Diagnostic
