#pragma once

#include <diagnostic/diagnosticdata.h>

#include <chrono>
#include <filesystem>
#include <string>

namespace KELP::Test {

/**
 * Creates, opens, lists and deletes reports at random for a time, beside others that do so.
 *
 * Each creation and deletion that the repository acknowledged is appended to the file @p journal,
 * as "created ID" and "deleted ID", as soon as it returned. A deletion that took something away and
 * then failed is repeated until it is done.
 *
 * @return "raced CREATED DELETED OPENED LISTED", with the number of reports of each.
 */
std::string race(const Diagnostic::DiagnosticData& repository, std::chrono::milliseconds duration,
                 unsigned seed, const std::filesystem::path& journal);

}  // namespace KELP::Test
