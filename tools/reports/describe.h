#pragma once

#include "reports/contents.h"
#include "reports/repository.h"

#include <json/value.h>

#include <cstdint>
#include <filesystem>
#include <string>

/** A report as a JSON object: what `show --json` prints, and what `export` puts into an archive. */
namespace KELP::Tool {

struct DescribeOptions {
  bool allLevels = false;  ///< Also the values above the permitted level.
  bool utc = false;        ///< Times in UTC instead of the local zone.
};

/** What there is in the place of a variation's file. */
enum class FileState {
  Present,
  Missing,
  Irregular,  ///< It is a directory, a symbolic link, a pipe or the like.
  Outside,    ///< The stored path leads out of the report; nothing was looked at.
};

/** "present", "missing", "irregular", "outside". */
[[nodiscard]] const char* nameOf(FileState state);

struct FileLook {
  FileState state = FileState::Missing;
  std::uint64_t size = 0;  ///< Of a file that is present.
};

/** Looks at a variation's file without opening it. */
[[nodiscard]] FileLook lookAtFile(const StoredReport& report, const Variation& variation);

/** The path of a variation's file below the report's directory, such as
 *  "contentfiles/log/10/log.txt"; the stored text when it leads out of the report. */
[[nodiscard]] std::string pathInReport(const StoredReport& report, const Variation& variation);

/**
 * Everything that the report's store holds; what is not stored, or cannot be read, is null.
 *
 *     {"id", "stage", "created", "modified", "app", "build", "user", "device", "session",
 * "version", "consent_level", "max_consent_level", "permitted_level", "creation_complete",
 * "user_interaction_complete", "data_collection_complete", "data_policy_applied",
 * "upload_complete", "description", "pid", "process", "loaded_libraries": […], "contents":
 * [{"name", "type", "media_type", "tags": […], "variations": […]}]}
 *
 * A variation is {"level", "best", "value"}; that of a file property has "path", "file" (its name),
 * "state" and "size" (null unless present) in place of "value". One above the permitted level is
 * {"level", "hidden": true} unless DescribeOptions::allLevels. "best" is true for the one with the
 * highest permitted level.
 *
 * It depends on the stored report alone, not on its locks, so the same report gives the same
 * object.
 */
[[nodiscard]] Json::Value describeReport(const StoredReport& report,
                                         const DescribeOptions& options);

}  // namespace KELP::Tool
