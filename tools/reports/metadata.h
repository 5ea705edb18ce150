#pragma once

#include <diagnostic/reportcontentproperties.h>
#include <diagnostic/reportuuid.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace KELP::Tool {

/** All that a report's metadata store holds. What is not stored, or not readable, is empty. */
struct Metadata {
  static constexpr const char* kContentsKey = "report_contents";

  std::optional<Diagnostic::ReportUuid> reportId;
  std::optional<int> appId;
  std::optional<int> buildId;
  std::optional<int> userId;
  std::optional<std::string> deviceId;
  std::optional<std::string> sessionId;
  std::optional<int> version;
  std::optional<long> created;   ///< Seconds since the epoch.
  std::optional<long> modified;  ///< Seconds since the epoch.
  std::optional<int> currentConsentLevel;
  std::optional<int> maxConsentLevel;
  std::optional<bool> creationComplete;
  std::optional<bool> userInteractionComplete;
  std::optional<bool> dataCollectionComplete;
  std::optional<bool> dataPolicyApplied;
  std::optional<bool> uploadComplete;
  std::optional<std::string> description;
  std::optional<int> pid;
  std::optional<std::string> processName;
  std::optional<std::vector<std::string>> loadedLibraries;
  std::optional<std::vector<Diagnostic::DiagnosticReportContentProperties>> contents;

  std::vector<std::string> missing;     ///< Keys that creation writes and that are not stored.
  std::vector<std::string> unreadable;  ///< Keys whose stored text is no value of their type.

  /** The highest level that may be shown or handed on: the smaller of the two consent levels. One
   * that is not stored is 0. */
  [[nodiscard]] int permittedLevel() const;

  /** Whether there is a list of contents that cannot be read. */
  [[nodiscard]] bool hasUnreadableContents() const;
};

/**
 * Reads a store without taking a lock, and without changing or creating anything; opening the
 * report would take its lock for a moment, and could make somebody else's attempt at it fail.
 *
 * @param store the path of a report's "metadata.db".
 * @return nothing when the store is absent or damaged.
 */
[[nodiscard]] std::optional<Metadata> readMetadata(const std::filesystem::path& store);

}  // namespace KELP::Tool
