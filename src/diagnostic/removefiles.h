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

}  // namespace KELP::Diagnostic
