#pragma once

#include "check/finding.h"

#include <filesystem>
#include <string>
#include <vector>

namespace KELP::Tool {

/** A report that was not checked, and why. */
struct Unchecked {
  std::string report;
  std::string reason;
  bool isFailure;  ///< That the system did not let it be looked at; otherwise somebody works on it.
};

struct Examination {
  Findings findings;  ///< In the order of the reports' names.
  std::vector<Unchecked> unchecked;
};

/**
 * Looks for everything that is wrong, while other processes create, change and delete reports, and
 * without locking anybody out.
 *
 * What somebody is just doing can look like damage, and not all of it is done under a lock: a
 * report's directory is there before its lock file, and a report that is deleted is given free
 * first. So a finding only counts when nobody has the write lock, and nothing in the report has
 * changed for a while; until then, the report is looked at again. Scratch files only count when
 * nobody reads the report either.
 */
[[nodiscard]] Examination examine(const std::filesystem::path& root,
                                  const std::vector<std::string>& names);

/** As examine(), for all reports and what else is under the root. Throws as reportNames(). */
[[nodiscard]] Examination examineAll(const std::filesystem::path& root);

}  // namespace KELP::Tool
