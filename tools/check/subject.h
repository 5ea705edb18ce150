#pragma once

#include "base/files.h"
#include "reports/repository.h"

#include <filesystem>
#include <functional>
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
  /** "metadata.db". */
  [[nodiscard]] std::filesystem::path storePath() const;
  /** "contentfiles". */
  [[nodiscard]] std::filesystem::path contentFiles() const;
  /** Whether it is known what the report's records name. */
  [[nodiscard]] bool hasReadableContents() const;
};

/**
 * Reads the report in the directory @p name of @p root without following a link in the place of
 * one of its files, or waiting for anything.
 *
 * What cannot be read must not be taken for what is not there: this, and all that looks at a
 * subject, throws a std::system_error when the system does not let it look.
 */
[[nodiscard]] Subject readSubject(const std::filesystem::path& root, const std::string& name,
                                  const LockTable& locks);

/** As entryAt(), entriesOf() and forEachBelow(), but throw a std::system_error when they cannot
 *  tell. */
[[nodiscard]] std::optional<Entry> certainEntryAt(const std::filesystem::path& path);
[[nodiscard]] std::vector<Entry> certainEntriesOf(const std::filesystem::path& directory);
void forEachCertainBelow(const std::filesystem::path& directory,
                         const std::function<void(const Entry&)>& visit);

}  // namespace KELP::Tool
