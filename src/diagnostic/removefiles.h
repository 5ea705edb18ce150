#pragma once

#include <filesystem>
#include <string>
#include <system_error>

namespace KELP::Diagnostic {

/**
 * Removes a file, or a directory with all that is in it, that the report in the directory @p report
 * no longer names. A failure leaves an orphan and is none of the caller's. A path that ends in a
 * separator is that of a directory, or of a link in its place, which is removed and not followed.
 */
void removeFiles(const std::filesystem::path& report, const std::filesystem::path& path);

/**
 * Removes an entry of the open directory @p directory (or, with AT_FDCWD, the one with that path),
 * with all that is in it. Links are removed, and not followed. Nothing depends on how deep a
 * directory is but memory. It is no failure when there is none.
 */
std::error_code removeTree(int directory, const std::string& name);

/** The same of an entry that is a file or an empty directory. */
std::error_code removeEntry(int directory, const std::string& name);

/**
 * Removes the directory of a report with all that is in it. Who opens the report just then creates
 * its lock file or its store anew; that is removed as well, so often as it takes those who had
 * begun. Who removes it just then takes away what was about to be removed, and perhaps stops for
 * the same reason; so what is left is removed as well.
 */
std::error_code removeReportDirectory(const std::filesystem::path& directory);

}  // namespace KELP::Diagnostic
