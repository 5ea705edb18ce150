#pragma once

#include "os/filedescriptor.h"

#include <filesystem>
#include <string>
#include <system_error>

/**
 * @file
 * Files of a report, reached so that nobody who exchanges a directory for a symbolic link meanwhile
 * leads the library out of the report: docs/security.md.
 */
namespace KELP::Diagnostic {

/** A directory that is open, and the name of an entry in it, which need not exist. */
struct ReportPlace {
  OS::FileDescriptor directory;
  std::string name;
};

/** What to do about directories that are missing. */
enum class Missing { MakeDirectories, Fail };

/**
 * Finds the place of @p path in the report's directory @p report. Links that are there now are
 * followed within the report; one that comes up later is an error.
 *
 * @param path has passed the check that it lies in the report.
 */
std::error_code findPlace(const std::filesystem::path& report, const std::filesystem::path& path,
                          Missing missing, ReportPlace& place);

/** Makes the directory @p directory of a report, and those above it. */
std::error_code makeDirectories(const std::filesystem::path& report,
                                const std::filesystem::path& directory);

/**
 * Copies a file, and its mode, over what stands at its place. A symbolic link there is not followed
 * but replaced, and only when the copy is complete; what is no file stays. The codes are those of
 * std::filesystem::copy_file.
 */
std::error_code copyFile(const std::filesystem::path& source, const ReportPlace& place);

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

/** Opens a directory for what is done with its entries, by a name that is no symbolic link. */
OS::FileDescriptor openDirectory(int directory, const std::string& name);

}  // namespace KELP::Diagnostic
