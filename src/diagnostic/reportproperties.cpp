#include "diagnostic/contentsearch.h"
#include "diagnostic/removefiles.h"
#include "diagnostic/reportmetadata.h"
#include "diagnostic/typeword.h"

#include <diagnostic/diagnosticreport.h>

#include <utility>

// The properties of a report's contents.

namespace KELP::Diagnostic {
namespace {

namespace fs = std::filesystem;
namespace keys = MetadataKeys;
using Type = DiagnosticReportContentPropertyTypes;
using Result = DiagnosticReport::Result;

constexpr const char* kWriteFailure =
    "Failed to write updated content property value to report metadata";

/** Removes a property only if it has the type. */
Result removeTyped(DiagnosticReport& report, Type type, std::string name) {
  if (!report.getReportContentProperty(name, type)) {
    const std::string start = std::string("Report ") + typeWord(type) + " property to be removed";
    return fail(noCode(), start + " does not exist in the report",
                "%s (%s) does not exist in the report", start.c_str(), name.c_str());
  }
  return report.removeReportContentProperty(std::move(name));
}

}  // namespace

std::optional<ReportContents> DiagnosticReport::getReportContents() const {
  return read(keys::kReportContents);
}

bool DiagnosticReport::hasReportContentProperty(std::string name) const {
  return getReportContentProperty(std::move(name)).has_value();
}

std::optional<DiagnosticReport::Properties> DiagnosticReport::getReportContentProperty(
    std::string name) const {
  const auto contents = store_ ? store_->look(keys::kReportContents) : nullptr;
  const Properties* const found = contents ? findProperty(*contents, name) : nullptr;
  return found != nullptr ? std::optional(*found) : std::nullopt;
}

std::optional<DiagnosticReport::Properties> DiagnosticReport::getReportContentProperty(
    std::string name, PropertyTypes type) const {
  std::optional<Properties> property = getReportContentProperty(std::move(name));
  return property && property->property_type == type ? std::move(property) : std::nullopt;
}

Result DiagnosticReport::createReportContentProperty(std::string name, PropertyTypes type,
                                                     std::string mediaType, Tags tags) {
  if (isDataCollectionComplete()) {
    return fail("Report status does not allow creation of new content properties");
  }
  if (Result touched = touch(); !touched) {
    return touched;
  }
  ReportContents contents = getReportContents().value_or(ReportContents());
  if (findProperty(contents, name) != nullptr) {
    return fail(noCode(), "Report content property to be created already exists",
                "Report content property to be created (%s) already exists", name.c_str());
  }
  contents.push_back({std::move(name), type, std::move(mediaType), std::move(tags), {}});
  if (!write(keys::kReportContents, std::move(contents))) {
    return fail(kWriteFailure);
  }
  return true;
}

Result DiagnosticReport::removeReportContentProperty(std::string name) {
  std::optional<ReportContents> contents = getReportContents();
  if (!contents) {
    return fail("Cannot remove content properties from report with no contents");
  }
  Properties* const property = findProperty(*contents, name);
  if (property == nullptr) {
    return fail(noCode(), "Report content property to be removed does not exist in the report",
                "Report content property to be removed (%s) does not exist in the report",
                name.c_str());
  }
  fs::path files;
  if (property->isFileProperty()) {
    PathResult directory = _getReportContentFileDirPath(name);
    if (!directory) {
      return passOn(directory.error(), "Unable to determine destination path for file to remove");
    }
    files = *std::move(directory);
  }
  contents->erase(contents->begin() + (property - contents->data()));
  Result changed = change(keys::kReportContents, *std::move(contents), kWriteFailure);
  if (changed && !files.empty()) {
    removeFiles(*_getReportDirPath(), files);
  }
  return changed;
}

Result DiagnosticReport::addTagsToContentProperty(std::string name, Tags tags) {
  if (isDataCollectionComplete()) {
    return fail("Adding tags to report after collection is completed is not allowed");
  }
  std::optional<ReportContents> contents = getReportContents();
  if (!contents) {
    return fail("Cannot update content tags on report with no contents");
  }
  Properties* const property = findProperty(*contents, name);
  if (property == nullptr) {
    return fail(noCode(), "Report content property to be tagged does not exist in the report",
                "Report content property to be tagged (%s) does not exist in the report",
                name.c_str());
  }
  property->tags.merge(tags);
  return change(keys::kReportContents, *std::move(contents),
                "Failed to write updated contents for variation removal");
}

Result DiagnosticReport::addTagToContentProperty(std::string name, std::string tag) {
  return addTagsToContentProperty(std::move(name), {std::move(tag)});
}

// --- The same for each type ---

bool DiagnosticReport::hasReportFileProperty(std::string name) const {
  return getReportContentProperty(std::move(name), Type::FILE).has_value();
}
bool DiagnosticReport::hasReportStringProperty(std::string name) const {
  return getReportContentProperty(std::move(name), Type::STRING).has_value();
}
bool DiagnosticReport::hasReportIntegerProperty(std::string name) const {
  return getReportContentProperty(std::move(name), Type::INTEGER).has_value();
}
bool DiagnosticReport::hasReportDoubleProperty(std::string name) const {
  return getReportContentProperty(std::move(name), Type::DOUBLE).has_value();
}
bool DiagnosticReport::hasReportBooleanProperty(std::string name) const {
  return getReportContentProperty(std::move(name), Type::BOOLEAN).has_value();
}

std::optional<DiagnosticReport::Properties> DiagnosticReport::getReportFileProperty(
    std::string name) const {
  return getReportContentProperty(std::move(name), Type::FILE);
}
std::optional<DiagnosticReport::Properties> DiagnosticReport::getReportStringProperty(
    std::string name) const {
  return getReportContentProperty(std::move(name), Type::STRING);
}
std::optional<DiagnosticReport::Properties> DiagnosticReport::getReportIntegerProperty(
    std::string name) const {
  return getReportContentProperty(std::move(name), Type::INTEGER);
}
std::optional<DiagnosticReport::Properties> DiagnosticReport::getReportDoubleProperty(
    std::string name) const {
  return getReportContentProperty(std::move(name), Type::DOUBLE);
}
std::optional<DiagnosticReport::Properties> DiagnosticReport::getReportBooleanProperty(
    std::string name) const {
  return getReportContentProperty(std::move(name), Type::BOOLEAN);
}

Result DiagnosticReport::createReportFileProperty(std::string name, std::string mediaType,
                                                  Tags tags) {
  return createReportContentProperty(std::move(name), Type::FILE, std::move(mediaType),
                                     std::move(tags));
}
Result DiagnosticReport::createReportStringProperty(std::string name, Tags tags) {
  return createReportContentProperty(std::move(name), Type::STRING, "", std::move(tags));
}
Result DiagnosticReport::createReportIntegerProperty(std::string name, Tags tags) {
  return createReportContentProperty(std::move(name), Type::INTEGER, "", std::move(tags));
}
Result DiagnosticReport::createReportDoubleProperty(std::string name, Tags tags) {
  return createReportContentProperty(std::move(name), Type::DOUBLE, "", std::move(tags));
}
Result DiagnosticReport::createReportBooleanProperty(std::string name, Tags tags) {
  return createReportContentProperty(std::move(name), Type::BOOLEAN, "", std::move(tags));
}

Result DiagnosticReport::removeReportFileProperty(std::string name) {
  return removeTyped(*this, Type::FILE, std::move(name));
}
Result DiagnosticReport::removeReportStringProperty(std::string name) {
  return removeTyped(*this, Type::STRING, std::move(name));
}
Result DiagnosticReport::removeReportIntegerProperty(std::string name) {
  return removeTyped(*this, Type::INTEGER, std::move(name));
}
Result DiagnosticReport::removeReportDoubleProperty(std::string name) {
  return removeTyped(*this, Type::DOUBLE, std::move(name));
}
Result DiagnosticReport::removeReportBooleanProperty(std::string name) {
  return removeTyped(*this, Type::BOOLEAN, std::move(name));
}

}  // namespace KELP::Diagnostic
