#pragma once

#include <diagnostic/reportcontentproperties.h>

#include <optional>
#include <string>
#include <vector>

/** The JSON text that a report's contents are stored as (docs/on-disk-format.md). */
namespace KELP::Diagnostic {

using ReportContents = std::vector<DiagnosticReportContentProperties>;

/** The stored text of @p contents. */
[[nodiscard]] std::string writeReportContents(const ReportContents& contents);

/**
 * The contents that @p text holds. Properties and variations that lack what they need are left out.
 *
 * @return empty, with a log line, when the text is no JSON array.
 */
[[nodiscard]] std::optional<ReportContents> readReportContents(const std::string& text);

}  // namespace KELP::Diagnostic
