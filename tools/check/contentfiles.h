#pragma once

#include "check/subject.h"
#include "reports/contents.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

/** The files of a report's contents, as its records and its directories have them. */
namespace KELP::Tool {

/** The properties of files. Valid as long as @p subject. */
[[nodiscard]] std::vector<const Property*> fileProperties(const Subject& subject);

/** Calls @p visit with each property of files, and each of its variations. */
void forEachFileVariation(const Subject& subject,
                          const std::function<void(const Property&, const Variation&)>& visit);

/** The file of a variation that was recorded when the report was under another root, from which it
 * was copied or moved; nothing when it was not, or there is no such file in the report. */
[[nodiscard]] std::optional<std::filesystem::path> fileOfAnotherRoot(const StoredReport& report,
                                                                     const Variation& variation);

/** A variation of a property of files. */
struct RecordedFile {
  std::string property;
  int level;
  std::filesystem::path path;  ///< As recorded, completed by the report's directory.
  std::string complaint;       ///< Why there is no such file, escaped; empty when there is.
};

[[nodiscard]] std::vector<RecordedFile> recordedFiles(const Subject& subject);

/** Something under "contentfiles" that no record names. */
struct Orphan {
  std::filesystem::path path;
  bool isEmptyDirectory;  ///< With nothing but directories in it, of no property that there is.
};

/**
 * What no record names. The empty directories that removed variations leave belong to their
 * property, and what is below a directory that a record names belongs to that.
 */
[[nodiscard]] std::vector<Orphan> orphansOf(const Subject& subject);

}  // namespace KELP::Tool
