#pragma once

#include <diagnostic/reportcontentproperties.h>

#include <optional>
#include <string>
#include <vector>

/** The JSON text that a report's contents are stored as (docs/on-disk-format.md). */
namespace KELP::Diagnostic {

using ReportContents = std::vector<DiagnosticReportContentProperties>;

/** The stored text of @p contents. Throws std::length_error for a string of more than 256 MiB. */
[[nodiscard]] std::string writeReportContents(const ReportContents& contents);

/**
 * The contents that @p text holds. Properties and variations that lack what they need are left out.
 *
 * @return empty, with a log line, when the text is no JSON array.
 */
[[nodiscard]] std::optional<ReportContents> readReportContents(const std::string& text);

/**
 * Makes of @p contents what reading their stored text would give, without the text.
 *
 * @return false when only the text can tell, which is so for characters other than printable ASCII
 *         and for values that are no finite numbers. Then @p contents may be half of it.
 */
[[nodiscard]] bool makeAsStored(ReportContents& contents);

}  // namespace KELP::Diagnostic
