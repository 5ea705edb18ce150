#pragma once

#include <filesystem>
#include <system_error>

/** Removing from the directory of a report, and never from anywhere else: no link below is
 *  followed, also not one that somebody puts there meanwhile. */
namespace KELP::Tool {

/** Removes @p name, a path from the directory @p top on, with all that is in it. That it is not
 *  there is no error. Throws Interrupted when a signal comes. */
[[nodiscard]] std::error_code removeTree(const std::filesystem::path& top,
                                         const std::filesystem::path& name);

/** The same for a directory that has only directories in it. Never removes anything else. */
[[nodiscard]] std::error_code removeEmptyDirectories(const std::filesystem::path& top,
                                                     const std::filesystem::path& name);

}  // namespace KELP::Tool
