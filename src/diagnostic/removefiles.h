#pragma once

#include <filesystem>
#include <system_error>

namespace KELP::Diagnostic {

/**
 * Removes a file, or a directory with all that is in it, that the report no longer names. A failure
 * leaves an orphan and is none of the caller's.
 *
 * A symbolic link is removed and not followed. A separator at the end of its path would make the
 * system follow it, and empty the directory that it leads to.
 */
inline void removeFiles(const std::filesystem::path& path) {
  const std::filesystem::path entry = path.has_filename() ? path : path.parent_path();
  std::error_code ignored;
  if (std::filesystem::is_symlink(entry, ignored)) {
    std::filesystem::remove(entry, ignored);
  } else {
    std::filesystem::remove_all(path, ignored);
  }
}

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
    std::filesystem::remove_all(directory, code);
    if (code != std::errc::directory_not_empty && code != std::errc::no_such_file_or_directory) {
      break;
    }
  }
  return code;
}

}  // namespace KELP::Diagnostic
