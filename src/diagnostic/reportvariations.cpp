#include "diagnostic/contentsearch.h"
#include "diagnostic/removefiles.h"
#include "diagnostic/reportmetadata.h"
#include "diagnostic/typeword.h"

#include <diagnostic/diagnosticreport.h>

#include <algorithm>
#include <utility>

// The variations of a report's content properties.

namespace KELP::Diagnostic {
namespace {

namespace fs = std::filesystem;
namespace keys = MetadataKeys;
using Type = DiagnosticReportContentPropertyTypes;
using Property = DiagnosticReportContentProperties;
using Variation = DiagnosticReportContentVariations;
using Result = DiagnosticReport::Result;

constexpr const char* kWriteFailure = "Failed to write updated contents for variation removal";

std::optional<Variation> variationAt(const std::optional<Property>& property, int level) {
  const Variation* const found = property ? findVariation(*property, level) : nullptr;
  return found != nullptr ? std::optional(*found) : std::nullopt;
}

/** The variation with the highest level from 0 to @p permitted. */
std::optional<Variation> bestVariation(const std::optional<Property>& property, int permitted) {
  const Variation* best = nullptr;
  int bestLevel = -1;
  if (property) {
    for (const Variation& variation : property->variations) {
      const int level = variation.sensitivity_level;
      if (level <= permitted && level > bestLevel) {
        best = &variation;
        bestLevel = level;
      }
    }
  }
  return best != nullptr ? std::optional(*best) : std::nullopt;
}

/** The value of @p variation, which is of @p type. @param wanted what the message says is lacking.
 */
template <typename T>
OS::expected<T, DiagnosticError> valueOf(std::optional<Variation> variation, T Variation::*member,
                                         const char* wanted, Type type) {
  if (!variation) {
    const std::string message = std::string("Unable to get ") + wanted + " for report " +
                                typeWord(type) + " variation that does not exist";
    return fail(noCode(), message, "%s", message.c_str());
  }
  return std::move((*variation).*member);
}

template <typename T>
Variation variationOf(int level, T Variation::*member, T value) {
  Variation variation;
  variation.*member = std::move(value);
  variation.sensitivity_level = level;
  return variation;
}

/** Removes a variation only if its property has the type. */
Result removeTyped(DiagnosticReport& report, Type type, std::string name, int level) {
  if (!report.getReportContentVariation(name, type, level)) {
    const std::string start = std::string("Report ") + typeWord(type) + " variation to be removed";
    return fail(noCode(), start + " does not exist in the report",
                "%s (%s, %d) does not exist in the report", start.c_str(), name.c_str(), level);
  }
  return report.removeContentPropertyVariation(std::move(name), level);
}

}  // namespace

std::optional<Variation> DiagnosticReport::getReportContentVariation(std::string name,
                                                                     int level) const {
  return variationAt(getReportContentProperty(std::move(name)), level);
}

std::optional<Variation> DiagnosticReport::getReportContentVariation(std::string name,
                                                                     PropertyTypes type,
                                                                     int level) const {
  return variationAt(getReportContentProperty(std::move(name), type), level);
}

bool DiagnosticReport::hasReportContentVariation(std::string name, int level) const {
  return getReportContentVariation(std::move(name), level).has_value();
}

std::optional<Variation> DiagnosticReport::getReportContentBestVariation(std::string name) const {
  return bestVariation(getReportContentProperty(std::move(name)), permittedLevel());
}

std::optional<Variation> DiagnosticReport::getReportContentBestVariation(std::string name,
                                                                         PropertyTypes type) const {
  return bestVariation(getReportContentProperty(std::move(name), type), permittedLevel());
}

Result DiagnosticReport::addReportContentVariation(std::string name, Variations variation,
                                                   bool overwrite) {
  std::optional<ReportContents> contents = getReportContents();
  if (!contents) {
    return fail(noCode(), "Cannot update file variations on report with no contents",
                "Cannot update variations on report with no contents");
  }
  if (Properties* const property = findProperty(*contents, name); property != nullptr) {
    Variation* const found = findVariation(*property, variation.sensitivity_level);
    if (found != nullptr && !overwrite) {
      return fail("Variation already exists and overwrite is not allowed");
    }
    if (found != nullptr) {
      *found = std::move(variation);
    } else {
      property->variations.push_back(std::move(variation));
    }
  }
  return change(keys::kReportContents, *std::move(contents), kWriteFailure);
}

Result DiagnosticReport::removeContentPropertyVariation(std::string name, int level) {
  std::optional<ReportContents> contents = getReportContents();
  if (!contents) {
    return fail("Cannot remove content property variations from report with no contents");
  }
  Properties* const property = findProperty(*contents, name);
  Variation* const variation = property != nullptr ? findVariation(*property, level) : nullptr;
  if (variation == nullptr) {
    return fail(noCode(), "Content property variation to remove does not exist in report",
                "Content property variation to remove (%s, %d) does not exist in report",
                name.c_str(), level);
  }
  fs::path file;
  if (property->isFileProperty()) {
    PathResult path = _getReportRelativePath(variation->relative_path);
    if (!path) {
      return passOn(path.error(), "Unable to determine destination path for file to remove");
    }
    file = *std::move(path);
  }
  property->variations.erase(property->variations.begin() +
                             (variation - property->variations.data()));
  Result changed = change(keys::kReportContents, *std::move(contents), kWriteFailure);
  if (changed && !file.empty()) {
    removeFiles(*_getReportDirPath(), file);
  }
  return changed;
}

/** The highest level that both consent levels permit. */
int DiagnosticReport::permittedLevel() const {
  return std::min(getCurrentConsentLevel(), getMaxConsentLevel());
}

// --- The same for each type ---

std::optional<Variation> DiagnosticReport::getReportFileVariation(std::string name,
                                                                  int level) const {
  return getReportContentVariation(std::move(name), Type::FILE, level);
}
std::optional<Variation> DiagnosticReport::getReportStringVariation(std::string name,
                                                                    int level) const {
  return getReportContentVariation(std::move(name), Type::STRING, level);
}
std::optional<Variation> DiagnosticReport::getReportIntegerVariation(std::string name,
                                                                     int level) const {
  return getReportContentVariation(std::move(name), Type::INTEGER, level);
}
std::optional<Variation> DiagnosticReport::getReportDoubleVariation(std::string name,
                                                                    int level) const {
  return getReportContentVariation(std::move(name), Type::DOUBLE, level);
}
std::optional<Variation> DiagnosticReport::getReportBooleanVariation(std::string name,
                                                                     int level) const {
  return getReportContentVariation(std::move(name), Type::BOOLEAN, level);
}

bool DiagnosticReport::hasReportFileVariation(std::string name, int level) const {
  return getReportFileVariation(std::move(name), level).has_value();
}
bool DiagnosticReport::hasReportStringVariation(std::string name, int level) const {
  return getReportStringVariation(std::move(name), level).has_value();
}
bool DiagnosticReport::hasReportIntegerVariation(std::string name, int level) const {
  return getReportIntegerVariation(std::move(name), level).has_value();
}
bool DiagnosticReport::hasReportDoubleVariation(std::string name, int level) const {
  return getReportDoubleVariation(std::move(name), level).has_value();
}
bool DiagnosticReport::hasReportBooleanVariation(std::string name, int level) const {
  return getReportBooleanVariation(std::move(name), level).has_value();
}

std::optional<Variation> DiagnosticReport::getReportFileBestVariation(std::string name) const {
  return getReportContentBestVariation(std::move(name), Type::FILE);
}
std::optional<Variation> DiagnosticReport::getReportStringBestVariation(std::string name) const {
  return getReportContentBestVariation(std::move(name), Type::STRING);
}
std::optional<Variation> DiagnosticReport::getReportIntegerBestVariation(std::string name) const {
  return getReportContentBestVariation(std::move(name), Type::INTEGER);
}
std::optional<Variation> DiagnosticReport::getReportDoubleBestVariation(std::string name) const {
  return getReportContentBestVariation(std::move(name), Type::DOUBLE);
}
std::optional<Variation> DiagnosticReport::getReportBooleanBestVariation(std::string name) const {
  return getReportContentBestVariation(std::move(name), Type::BOOLEAN);
}

OS::expected<std::string, DiagnosticError> DiagnosticReport::getReportStringVariationValue(
    std::string name, int level) const {
  return valueOf(getReportStringVariation(std::move(name), level), &Variation::string, "value",
                 Type::STRING);
}
OS::expected<int, DiagnosticError> DiagnosticReport::getReportIntegerVariationValue(
    std::string name, int level) const {
  return valueOf(getReportIntegerVariation(std::move(name), level), &Variation::integer, "value",
                 Type::INTEGER);
}
OS::expected<double, DiagnosticError> DiagnosticReport::getReportDoubleVariationValue(
    std::string name, int level) const {
  return valueOf(getReportDoubleVariation(std::move(name), level), &Variation::double_, "value",
                 Type::DOUBLE);
}
OS::expected<bool, DiagnosticError> DiagnosticReport::getReportBooleanVariationValue(
    std::string name, int level) const {
  return valueOf(getReportBooleanVariation(std::move(name), level), &Variation::boolean, "value",
                 Type::BOOLEAN);
}

// These say "path", as those of files do.

OS::expected<std::string, DiagnosticError> DiagnosticReport::getReportStringBestVariationValue(
    std::string name) const {
  return valueOf(getReportStringBestVariation(std::move(name)), &Variation::string, "path",
                 Type::STRING);
}
OS::expected<int, DiagnosticError> DiagnosticReport::getReportIntegerBestVariationValue(
    std::string name) const {
  return valueOf(getReportIntegerBestVariation(std::move(name)), &Variation::integer, "path",
                 Type::INTEGER);
}
OS::expected<double, DiagnosticError> DiagnosticReport::getReportDoubleBestVariationValue(
    std::string name) const {
  return valueOf(getReportDoubleBestVariation(std::move(name)), &Variation::double_, "path",
                 Type::DOUBLE);
}
OS::expected<bool, DiagnosticError> DiagnosticReport::getReportBooleanBestVariationValue(
    std::string name) const {
  return valueOf(getReportBooleanBestVariation(std::move(name)), &Variation::boolean, "path",
                 Type::BOOLEAN);
}

Result DiagnosticReport::addReportStringVariation(std::string name, int level, std::string value,
                                                  bool overwrite) {
  return addReportContentVariation(
      std::move(name), variationOf(level, &Variation::string, std::move(value)), overwrite);
}
Result DiagnosticReport::addReportIntegerVariation(std::string name, int level, int value,
                                                   bool overwrite) {
  return addReportContentVariation(std::move(name), variationOf(level, &Variation::integer, value),
                                   overwrite);
}
Result DiagnosticReport::addReportDoubleVariation(std::string name, int level, double value,
                                                  bool overwrite) {
  return addReportContentVariation(std::move(name), variationOf(level, &Variation::double_, value),
                                   overwrite);
}
Result DiagnosticReport::addReportBooleanVariation(std::string name, int level, bool value,
                                                   bool overwrite) {
  return addReportContentVariation(std::move(name), variationOf(level, &Variation::boolean, value),
                                   overwrite);
}

Result DiagnosticReport::removeFileVariation(std::string name, int level) {
  return removeTyped(*this, Type::FILE, std::move(name), level);
}
Result DiagnosticReport::removeStringVariation(std::string name, int level) {
  return removeTyped(*this, Type::STRING, std::move(name), level);
}
Result DiagnosticReport::removeIntegerVariation(std::string name, int level) {
  return removeTyped(*this, Type::INTEGER, std::move(name), level);
}
Result DiagnosticReport::removeDoubleVariation(std::string name, int level) {
  return removeTyped(*this, Type::DOUBLE, std::move(name), level);
}
Result DiagnosticReport::removeBooleanVariation(std::string name, int level) {
  return removeTyped(*this, Type::BOOLEAN, std::move(name), level);
}

}  // namespace KELP::Diagnostic
