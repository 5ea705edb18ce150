#pragma once

#include "reports/locktable.h"
#include "reports/metadata.h"

#include <diagnostic/reportuuid.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

namespace KELP::Tool {

/** How much of a report there is. */
enum class Soundness {
  Sound,
  HalfMade,    ///< It lacks its lock file, its store, or what creation writes there: being created,
               ///< or left over by a process that died.
  Damaged,     ///< Its store, or something in it, is not what it has to be.
  Mismatched,  ///< Its store says another identifier than its directory.
  Unreadable,  ///< The system does not let this process read it.
};

/** One report as it is seen without opening it. */
struct StoredReport {
  Diagnostic::ReportUuid id;
  std::string name;  ///< The identifier's text.
  std::filesystem::path directory;
  LockState lock = LockState::Free;
  Soundness soundness = Soundness::Sound;
  std::error_code refusal;  ///< Why it is Unreadable.
  bool hasStore = false;    ///< Whether its store could be read as a whole.
  Metadata metadata;        ///< What there is of it; all empty without a store.

  [[nodiscard]] bool isSound() const { return soundness == Soundness::Sound; }
  /** What it waits for; otherwise "half-made", "damaged", "mismatched" or "unreadable". */
  [[nodiscard]] std::string stageText() const;
};

/** Throws a Failure unless @p report is sound: Damage, or Failed when it is Unreadable. */
void requireSound(const StoredReport& report);

/** Throws a Failure (Busy): another process has the report @p name. */
[[noreturn]] void failAsBusy(const std::string& name);

/** Whether @p name is an identifier as directories are named after it, in lower case. */
[[nodiscard]] bool isReportName(const std::string& name);

/** The names of all report directories under @p root, sorted. A symbolic link is none. Throws a
 * Failure (NotFound) when the root is no directory, and another when it cannot be read. */
[[nodiscard]] std::vector<std::string> reportNames(const std::filesystem::path& root);

/** The report in the directory @p name of @p root. */
[[nodiscard]] StoredReport readReport(const std::filesystem::path& root, const std::string& name,
                                      const LockTable& locks);

/** All reports of @p root, newest first; those without a time of creation come last. What somebody
 * removes meanwhile is left out. Shows progress. */
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

/** As findReport(), but throws as requireSound(). */
[[nodiscard]] StoredReport findSoundReport(const std::filesystem::path& root,
                                           const std::string& prefix);

}  // namespace KELP::Tool
