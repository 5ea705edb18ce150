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
  UNKNOWN = 0,  ///< Nothing that the library knows.
  FILE = 1,     ///< A file within the report.
  STRING = 2,   ///< A text.
  INTEGER = 3,  ///< A signed 32-bit number.
  DOUBLE = 4,   ///< A floating-point number.
  BOOLEAN = 5,  ///< Yes or no.
};

/**
 * The name of an enumerator. May be called from any thread.
 *
 * @param type the enumerator.
 * @return its name, such as "FILE"; "UNKNOWN" for a value that is no enumerator. The text is
 * static.
 */
[[nodiscard]] KELP_EXPORT std::string_view DiagnosticReportContentPropertyTypesToString(
    DiagnosticReportContentPropertyTypes type);

/**
 * The enumerator of a name. May be called from any thread.
 *
 * @param name the name, in upper case.
 * @return the enumerator whose name is exactly that; UNKNOWN for every other text.
 */
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

  /**
   * Compares all six members; doubles as numbers, so a NaN equals nothing and 0.0 equals -0.0.
   *
   * @param other what to compare with.
   * @return whether all are equal.
   */
  bool operator==(const DiagnosticReportContentVariations& other) const;
  /** The opposite. @param other what to compare with. @return whether any is not equal. */
  bool operator!=(const DiagnosticReportContentVariations& other) const;
};

/** A named, typed part of a report's contents with all its variations. A plain value. */
struct KELP_EXPORT DiagnosticReportContentProperties {
  std::string stable_id;  ///< The property's name within its report.
  /** What its variations hold. */
  DiagnosticReportContentPropertyTypes property_type =
      DiagnosticReportContentPropertyTypes::UNKNOWN;
  std::string media_type;      ///< Free text, for files usually a MIME type.
  std::set<std::string> tags;  ///< Free texts, in no order of their own.
  /// In the order in which they were added. A variation is known by its level.
  std::vector<DiagnosticReportContentVariations> variations;

  /** Whether property_type is FILE. @return true if so. */
  [[nodiscard]] bool isFileProperty() const;

  /**
   * Compares all members; variations in list order.
   *
   * @param other what to compare with.
   * @return whether all are equal.
   */
  bool operator==(const DiagnosticReportContentProperties& other) const;
  /** The opposite. @param other what to compare with. @return whether any is not equal. */
  bool operator!=(const DiagnosticReportContentProperties& other) const;
};

}  // namespace KELP::Diagnostic
