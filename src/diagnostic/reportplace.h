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

/**
 * Finds the place of @p path in the report's directory @p report. Links that are there now are
 * followed within the report; one that comes up later is an error.
 *
 * @param path has passed the check that it lies in the report.
 */
std::error_code findPlace(const std::filesystem::path& report, const std::filesystem::path& path,
                          ReportPlace& place);

/** Makes the directory @p directory of a report, and those above it. */
std::error_code makeDirectories(const std::filesystem::path& report,
                                const std::filesystem::path& directory);

}  // namespace KELP::Diagnostic
