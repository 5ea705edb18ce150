#include "verbs/change.h"

#include "base/text.h"
#include "reports/access.h"

namespace KELP::Tool {
namespace {

using Diagnostic::DiagnosticReport;

bool isFileName(const std::string& text) {
  return !text.empty() && text != "." && text != ".." && text.find('/') == std::string::npos;
}

}  // namespace

void addChange(CLI::App& verb, ChangeOptions& options) {
  addId(verb, options.id);
  addWait(verb, options.waitMs);
}

std::unique_ptr<DiagnosticReport> openForChange(const Context& context,
                                                const ChangeOptions& options) {
  return openForChange(context.root, options.id, options.waitMs);
}

void addName(CLI::App& verb, std::string& name) {
  addText(verb, "NAME", name, "The content property")->required();
}

void addLevel(CLI::App& verb, int& level) {
  addValue(
      verb, "LEVEL", [&level](const std::string& given) { level = parseInteger(given); },
      "The variation's level of sensitivity")
      ->type_name("LEVEL")
      ->required();
}

void requireText(const std::string& text, const std::string& what) {
  if (!isText(text)) {
    throw Failure(ExitStatus::Usage, what + " is not UTF-8, or has a NUL in it");
  }
}

void requireFileName(const std::string& text, const std::string& what) {
  requireText(text, what);
  if (!isFileName(text)) {
    throw Failure(ExitStatus::Usage, what + " " + inQuotes(text) + " cannot be that of a file");
  }
}

void requireOwnDirectory(const Property& property) {
  if (property.isFileProperty() && !isFileName(property.stable_id)) {
    throw Failure(ExitStatus::Damage, "the name of the property " + inQuotes(property.stable_id) +
                                          " leads out of the directory of its files");
  }
}

Property requireProperty(const DiagnosticReport& report, const std::string& name) {
  if (auto property = report.getReportContentProperty(name)) {
    return *std::move(property);
  }
  throw Failure(ExitStatus::NotFound, "there is no property " + inQuotes(name));
}

void requireFileProperty(const Property& property) {
  if (!property.isFileProperty()) {
    throw Failure(ExitStatus::Usage, "the property " + inQuotes(property.stable_id) +
                                         " holds no files; its type is " +
                                         typeName(property.property_type));
  }
  requireOwnDirectory(property);
}

const Variation& requireVariation(const Property& property, int level) {
  if (const Variation* const variation = findVariation(property, level)) {
    return *variation;
  }
  throw Failure(ExitStatus::NotFound, "the property " + inQuotes(property.stable_id) +
                                          " has no variation of level " + std::to_string(level));
}

}  // namespace KELP::Tool
