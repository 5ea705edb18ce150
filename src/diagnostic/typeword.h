#pragma once

#include <diagnostic/reportcontentproperties.h>

/** What the messages of the typed operations call the types. */
namespace KELP::Diagnostic {

constexpr const char* typeWord(DiagnosticReportContentPropertyTypes type) {
  switch (type) {
    case DiagnosticReportContentPropertyTypes::FILE:
      return "file";
    case DiagnosticReportContentPropertyTypes::STRING:
      return "string";
    case DiagnosticReportContentPropertyTypes::INTEGER:
      return "integer";
    case DiagnosticReportContentPropertyTypes::DOUBLE:
      return "double";
    case DiagnosticReportContentPropertyTypes::BOOLEAN:
      return "boolean";
    case DiagnosticReportContentPropertyTypes::UNKNOWN:
      break;
  }
  return "unknown";
}

}  // namespace KELP::Diagnostic
