#pragma once

#include <os/export.h>

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace KELP::Diagnostic {

/** What a content property holds. The numbers and the names are part of the stored form. */
enum class DiagnosticReportContentPropertyTypes : std::int32_t {
  UNKNOWN = 0,
  FILE = 1,
  STRING = 2,
  INTEGER = 3,
  DOUBLE = 4,
  BOOLEAN = 5,
};

/** The enumerator's name, such as "FILE"; "UNKNOWN" for a value that is no enumerator. The text is
 *  static. May be called from any thread. */
[[nodiscard]] KELP_EXPORT std::string_view DiagnosticReportContentPropertyTypesToString(
    DiagnosticReportContentPropertyTypes type);

/** The enumerator whose name is exactly @p name (upper case); UNKNOWN for every other text. May be
 *  called from any thread. */
[[nodiscard]] KELP_EXPORT DiagnosticReportContentPropertyTypes
StringToDiagnosticReportContentPropertyTypes(std::string_view name);

/**
 * One version of a content property's value, at one level of sensitivity. A plain value.
 *
 * Only the member that matches the type of the owning property means anything; the others keep
 * their initial values.
 */
struct KELP_EXPORT DiagnosticReportContentVariations {
  std::string relative_path;  ///< FILE: the path of the stored file.
  std::string string;         ///< STRING: the value.
  std::int32_t integer = 0;   ///< INTEGER: the value.
  double double_ = 0.0;       ///< DOUBLE: the value.
  bool boolean = false;       ///< BOOLEAN: the value.
  /// Compared with the consent levels; higher is more sensitive. The initial value is a
  /// placeholder.
  std::int32_t sensitivity_level = 9999;

  /** Compares all six members; doubles as numbers, so a NaN equals nothing and 0.0 equals -0.0. */
  bool operator==(const DiagnosticReportContentVariations& other) const;
  bool operator!=(const DiagnosticReportContentVariations& other) const;
};

/** A named, typed part of a report's contents with all its variations. A plain value. */
struct KELP_EXPORT DiagnosticReportContentProperties {
  std::string stable_id;  ///< The property's name within its report.
  DiagnosticReportContentPropertyTypes property_type =
      DiagnosticReportContentPropertyTypes::UNKNOWN;
  std::string media_type;  ///< Free text, for files usually a MIME type.
  std::set<std::string> tags;
  /// In the order in which they were added. A variation is known by its level.
  std::vector<DiagnosticReportContentVariations> variations;

  /** Whether property_type is FILE. */
  [[nodiscard]] bool isFileProperty() const;

  /** Compares all members; variations in list order. */
  bool operator==(const DiagnosticReportContentProperties& other) const;
  bool operator!=(const DiagnosticReportContentProperties& other) const;
};

}  // namespace KELP::Diagnostic
