#pragma once

#include <diagnostic/reportcontentproperties.h>

#include <cstdint>
#include <ostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace KELP::Test {

using Types = Diagnostic::DiagnosticReportContentPropertyTypes;
using Variation = Diagnostic::DiagnosticReportContentVariations;
using Property = Diagnostic::DiagnosticReportContentProperties;

/** A variation at @p level whose other members have their initial values. */
[[nodiscard]] inline Variation variation(std::int32_t level) {
  Variation made;
  made.sensitivity_level = level;
  return made;
}

[[nodiscard]] inline Variation fileVariation(std::string path, std::int32_t level) {
  Variation made = variation(level);
  made.relative_path = std::move(path);
  return made;
}

[[nodiscard]] inline Variation stringVariation(std::string value, std::int32_t level) {
  Variation made = variation(level);
  made.string = std::move(value);
  return made;
}

[[nodiscard]] inline Variation integerVariation(std::int32_t value, std::int32_t level) {
  Variation made = variation(level);
  made.integer = value;
  return made;
}

[[nodiscard]] inline Variation doubleVariation(double value, std::int32_t level) {
  Variation made = variation(level);
  made.double_ = value;
  return made;
}

[[nodiscard]] inline Variation booleanVariation(bool value, std::int32_t level) {
  Variation made = variation(level);
  made.boolean = value;
  return made;
}

[[nodiscard]] inline Property property(std::string id, Types type,
                                       std::vector<Variation> variations = {},
                                       std::set<std::string> tags = {},
                                       std::string mediaType = "") {
  Property made;
  made.stable_id = std::move(id);
  made.property_type = type;
  made.media_type = std::move(mediaType);
  made.tags = std::move(tags);
  made.variations = std::move(variations);
  return made;
}

}  // namespace KELP::Test

// Printers for failed comparisons, found beside the records.
namespace KELP::Diagnostic {

inline std::ostream& operator<<(std::ostream& out, DiagnosticReportContentPropertyTypes type) {
  return out << DiagnosticReportContentPropertyTypesToString(type) << '('
             << static_cast<std::int32_t>(type) << ')';
}

inline std::ostream& operator<<(std::ostream& out, const DiagnosticReportContentVariations& v) {
  return out << "{path '" << v.relative_path << "', string '" << v.string << "', " << v.integer
             << ", " << v.double_ << ", " << (v.boolean ? "true" : "false") << ", level "
             << v.sensitivity_level << '}';
}

inline std::ostream& operator<<(std::ostream& out, const DiagnosticReportContentProperties& p) {
  out << p.property_type << " '" << p.stable_id << "' of '" << p.media_type << "', tags:";
  for (const auto& tag : p.tags)
    out << " '" << tag << "'";
  out << ", variations:";
  for (const auto& variation : p.variations)
    out << ' ' << variation;
  return out;
}

}  // namespace KELP::Diagnostic
