#pragma once

#include "base/files.h"
#include "reports/repository.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace KELP::Tool {

/** A report that is looked at, with what all finders want to know about it. */
struct Subject {
  StoredReport report;
  std::optional<Entry> lock;   ///< What stands in the place of the lock file.
  std::optional<Entry> store;  ///< What stands in the place of the metadata.

  [[nodiscard]] const std::filesystem::path& directory() const { return report.directory; }
  /** "contentfiles". */
  [[nodiscard]] std::filesystem::path contentFiles() const;
};

/** Reads the report in the directory @p name of @p root without following a link in the place of
 * one of its files, or waiting for anything. */
[[nodiscard]] Subject readSubject(const std::filesystem::path& root, const std::string& name,
                                  const LockTable& locks);

}  // namespace KELP::Tool
