#pragma once

#include "check/finding.h"
#include "check/subject.h"

#include <optional>

/** One finder for each kind of finding. None of them changes anything. */
namespace KELP::Tool {

/** What is wrong with a report. Whether somebody has its lock does not matter here. */
[[nodiscard]] Findings findInReport(const Subject& subject);

/** What an entry of the root is when it is no report's directory; nothing when it is one. */
[[nodiscard]] std::optional<Finding> findNoReport(const Entry& entry);

}  // namespace KELP::Tool
