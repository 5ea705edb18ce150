#pragma once

#include "reports/locktable.h"
#include "reports/metadata.h"

#include <diagnostic/reportuuid.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace KELP::Tool {

/** How much of a report there is. */
enum class Soundness {
  Sound,
  HalfMade,    ///< It lacks its lock file, its store, or what creation writes there: being created,
               ///< or left over by a process that died.
  Damaged,     ///< Its store cannot be read.
  Mismatched,  ///< Its store says another identifier than its directory.
};

/** One report as it is seen without opening it. */
struct StoredReport {
  Diagnostic::ReportUuid id;
  std::string name;  ///< The identifier's text.
  std::filesystem::path directory;
  LockState lock = LockState::Free;
  Soundness soundness = Soundness::Sound;
  Metadata metadata;  ///< What there is of it; all empty when Damaged.

  [[nodiscard]] bool isSound() const { return soundness == Soundness::Sound; }
  /** What it waits for; otherwise "half-made", "damaged" or "mismatched". */
  [[nodiscard]] std::string stageText() const;
};

/** Whether @p name is an identifier as directories are named after it, in lower case. */
[[nodiscard]] bool isReportName(const std::string& name);

/** The names of all report directories under @p root, sorted. Throws a Failure (NotFound) when the
 *  root is no directory, and another when it cannot be read. */
[[nodiscard]] std::vector<std::string> reportNames(const std::filesystem::path& root);

/** The report in the directory @p name of @p root. */
[[nodiscard]] StoredReport readReport(const std::filesystem::path& root, const std::string& name,
                                      const LockTable& locks);

/** All reports of @p root, newest first; those without a time of creation come last. Shows
 * progress. */
[[nodiscard]] std::vector<StoredReport> readReports(const std::filesystem::path& root);

/** How much each of @p reports takes, in bytes. Shows progress. */
[[nodiscard]] std::vector<std::uint64_t> sizesOf(const std::vector<StoredReport>& reports);

/** The name of the one report that begins with @p prefix, in either case. Throws a Failure:
 * NotFound, or Usage when there are several. */
[[nodiscard]] std::string resolveName(const std::filesystem::path& root, const std::string& prefix);

/** The names of the reports that begin with @p prefixes, each once, sorted. Throws as
 *  resolveName(). */
[[nodiscard]] std::vector<std::string> resolveNames(const std::filesystem::path& root,
                                                    const std::vector<std::string>& prefixes);

/** As readReport(), of the one that begins with @p prefix. */
[[nodiscard]] StoredReport findReport(const std::filesystem::path& root, const std::string& prefix);

/** As findReport(), but throws a Failure (Damage) unless it is sound. */
[[nodiscard]] StoredReport findSoundReport(const std::filesystem::path& root,
                                           const std::string& prefix);

}  // namespace KELP::Tool
