#include <diagnostic/reportcontentproperties.h>

#include <algorithm>
#include <iterator>
#include <tuple>

namespace KELP::Diagnostic {
namespace {

struct TypeName {
  DiagnosticReportContentPropertyTypes type;
  std::string_view name;
};

constexpr TypeName kTypeNames[] = {
    {DiagnosticReportContentPropertyTypes::UNKNOWN, "UNKNOWN"},
    {DiagnosticReportContentPropertyTypes::FILE, "FILE"},
    {DiagnosticReportContentPropertyTypes::STRING, "STRING"},
    {DiagnosticReportContentPropertyTypes::INTEGER, "INTEGER"},
    {DiagnosticReportContentPropertyTypes::DOUBLE, "DOUBLE"},
    {DiagnosticReportContentPropertyTypes::BOOLEAN, "BOOLEAN"},
};

/** The row whose @p member is @p wanted; the first one, for what is unknown, when there is none. */
template <typename T>
const TypeName& rowOf(T TypeName::*member, const T& wanted) {
  const auto* const found = std::ranges::find(kTypeNames, wanted, member);
  return found == std::end(kTypeNames) ? kTypeNames[0] : *found;
}

}  // namespace

std::string_view DiagnosticReportContentPropertyTypesToString(
    DiagnosticReportContentPropertyTypes type) {
  return rowOf(&TypeName::type, type).name;
}

DiagnosticReportContentPropertyTypes StringToDiagnosticReportContentPropertyTypes(
    std::string_view name) {
  return rowOf(&TypeName::name, name).type;
}

bool DiagnosticReportContentVariations::operator==(
    const DiagnosticReportContentVariations& other) const {
  const auto members = [](const DiagnosticReportContentVariations& variation) {
    return std::tie(variation.relative_path, variation.string, variation.integer, variation.double_,
                    variation.boolean, variation.sensitivity_level);
  };
  return members(*this) == members(other);
}

bool DiagnosticReportContentVariations::operator!=(
    const DiagnosticReportContentVariations& other) const {
  return !(*this == other);
}

bool DiagnosticReportContentProperties::isFileProperty() const {
  return property_type == DiagnosticReportContentPropertyTypes::FILE;
}

bool DiagnosticReportContentProperties::operator==(
    const DiagnosticReportContentProperties& other) const {
  const auto members = [](const DiagnosticReportContentProperties& property) {
    return std::tie(property.stable_id, property.property_type, property.media_type, property.tags,
                    property.variations);
  };
  return members(*this) == members(other);
}

bool DiagnosticReportContentProperties::operator!=(
    const DiagnosticReportContentProperties& other) const {
  return !(*this == other);
}

}  // namespace KELP::Diagnostic
