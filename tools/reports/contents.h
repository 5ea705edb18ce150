#pragma once

#include "reports/repository.h"

#include <diagnostic/reportcontentproperties.h>

#include <filesystem>
#include <optional>
#include <string>

/** Looking into the contents of a report as it is stored. */
namespace KELP::Tool {

using Property = Diagnostic::DiagnosticReportContentProperties;
using Variation = Diagnostic::DiagnosticReportContentVariations;
using PropertyType = Diagnostic::DiagnosticReportContentPropertyTypes;

/** The first property of that name; null when there is none. Valid as long as the report. */
[[nodiscard]] const Property* findProperty(const StoredReport& report, const std::string& name);

/** The first variation of that level; null when there is none. */
[[nodiscard]] const Variation* findVariation(const Property& property, int level);

/** The variation with the highest level that is not negative and not above @p permitted; null when
 *  there is none. */
[[nodiscard]] const Variation* bestVariation(const Property& property, int permitted);

/** Whether a variation may be shown or handed on: its level is not above @p permitted. */
[[nodiscard]] bool isPermitted(const Variation& variation, int permitted);

/** "file", "string", "integer", "double", "boolean" or "unknown". */
[[nodiscard]] std::string typeName(PropertyType type);

/** The other way round; nothing for any other text. "unknown" is no type to ask for. */
[[nodiscard]] std::optional<PropertyType> typeNamed(const std::string& name);

/** The value of a variation that is no file, as text: a string as it is, "true" and "false",
 * numbers in as many digits as tell them apart. */
[[nodiscard]] std::string valueText(const Variation& variation, PropertyType type);

/** Where the file of a variation is stored; nothing when the stored path leads out of the report.
 * It need not exist. */
[[nodiscard]] std::optional<std::filesystem::path> storedFile(const StoredReport& report,
                                                              const Variation& variation);

}  // namespace KELP::Tool
