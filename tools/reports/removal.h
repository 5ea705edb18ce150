#pragma once

#include "reports/repository.h"

#include <filesystem>
#include <string>

namespace KELP::Tool {

/** What came of trying to remove a report. */
struct Removal {
  enum class Outcome {
    Removed,
    Gone,     ///< Somebody else has removed it meanwhile.
    Busy,     ///< Somebody holds its lock.
    Damaged,  ///< It is not sound, and that was not to be overruled. Nothing was touched.
    Failed,   ///< Perhaps a part of it is gone.
  };

  Outcome outcome;
  std::string reason;  ///< Escaped, such as "in use"; empty when it was removed.
};

/**
 * Removes a report that nobody holds. Who takes its lock just now is waited for, a second at most.
 *
 * @param report as it was read; whether it is in use now is looked up again.
 * @param force  also when it is damaged or half-made; not when it is in use.
 */
[[nodiscard]] Removal removeReport(const std::filesystem::path& root, const StoredReport& report,
                                   bool force);

}  // namespace KELP::Tool
