#include "diagnostic/contentsearch.h"
#include "diagnostic/copyfile.h"
#include "diagnostic/removefiles.h"
#include "diagnostic/reportmetadata.h"
#include "diagnostic/reportplace.h"

#include <diagnostic/diagnosticreport.h>

#include <fcntl.h>

#include <system_error>
#include <utility>

// The files of a report: scratch files, and the files of its file properties.

namespace KELP::Diagnostic {
namespace {

namespace fs = std::filesystem;
namespace keys = MetadataKeys;
using Result = DiagnosticReport::Result;
using Variation = DiagnosticReportContentVariations;

/** Makes a directory where nothing stands yet. Throws when the place cannot be examined. */
std::error_code ensureDirectory(const fs::path& directory) {
  std::error_code code;
  if (!fs::exists(directory)) {
    fs::create_directories(directory, code);
  }
  return code;
}

/** Copies a file to its place in the report with the directory @p report. */
std::error_code copyWithin(const fs::path& report, const fs::path& source,
                           const fs::path& destination) {
  std::error_code code;
  if (!destination.has_filename()) {
    fs::copy_file(source, destination, code);  // Fails: no file has a name like this.
    return code;
  }
  ReportPlace place;
  code = findPlace(report, destination, place);
  return code ? code : copyFile(source, place);
}

}  // namespace

DiagnosticReport::TemporaryFileResult DiagnosticReport::createReportTemporaryFile() {
  const PathResult directory = _getReportTmpDirPath();
  if (!directory) {
    return passOn(directory.error(), "Failed to get report temporary directory path");
  }
  if (const std::error_code code = ensureDirectory(*directory)) {
    return fail(code, "Failed to create temp directory for report");
  }
  return std::make_shared<ReportTemporaryFile>(*directory);
}

Result DiagnosticReport::purgeReportTemporaryFiles() {
  const PathResult directory = _getReportTmpDirPath();
  if (!directory) {
    return passOn(directory.error(), "Cannot purge unknown report temporary directory path");
  }
  if (removeTree(AT_FDCWD, *directory)) {
    return fail(noCode(), "err, Failed to remove temp directory for report",
                "Failed to remove temp directory for report");
  }
  return true;
}

Result DiagnosticReport::copyFileToFileProperty(std::string name, int variation, fs::path source,
                                                std::string fileName, bool overwrite) {
  std::optional<ReportContents> contents = getReportContents();
  if (!contents) {
    return fail("Cannot update file variations on report with no contents");
  }
  Properties* const property = findProperty(*contents, name);
  if (property == nullptr) {
    return fail("Unable to determine destination path for new file");
  }
  const Variation* const existing = findVariation(*property, variation);
  if (existing != nullptr && !overwrite) {
    return fail("File already exists and overwrite is not allowed");
  }
  const PathResult destination =
      existing != nullptr
          ? _getReportRelativePath(existing->relative_path)
          : _getReportFileVariationFilePath(name, variation, fileName.empty() ? name : fileName);
  if (!destination) {
    return passOn(destination.error(), "Unable to determine destination path for new file");
  }
  if (existing == nullptr) {
    Variation added;
    // In full, so that it names the same file whatever the root is relative to.
    added.relative_path = fs::absolute(*destination).string();
    added.sensitivity_level = variation;
    property->variations.push_back(std::move(added));
  }

  const PathResult directory = _getReportDirPath();
  if (!directory) {
    return directory.error();
  }
  const fs::path parent = destination->parent_path();
  if (std::error_code code; !fs::exists(parent) && (code = makeDirectories(*directory, parent))) {
    return fail(code, "Failed to create directory for report file variation");
  }
  if (Result touched = touch(); !touched) {
    return touched;
  }
  if (const std::error_code code = copyWithin(*directory, source, *destination)) {
    return fail(code, "Failed to copy file to report location",
                "Failed to copy file to report location: %s", code.message().c_str());
  }
  if (!write(keys::kReportContents, *std::move(contents))) {
    return fail("Failed to write updated contents for variation removal");
  }
  return true;
}

Result DiagnosticReport::moveReportTemporaryFileToFileProperty(
    std::string name, int variation, std::shared_ptr<ReportTemporaryFile> file,
    std::string fileName, bool overwrite) {
  if (!file) {
    return fail("Temporary file to move to report is null");
  }
  if (!file->isValid()) {
    return fail("Temporary file to move to report is not valid");
  }
  std::optional<fs::path> path = file->getPath();
  if (!path) {
    return fail("Temporary file to move to report does not have a path");
  }
  Result copied = copyFileToFileProperty(std::move(name), variation, *std::move(path),
                                         std::move(fileName), overwrite);
  if (!copied) {
    return passOn(std::move(copied).error(),
                  "Failed to copy temporary file to report file variations");
  }
  file->cleanup();
  return true;
}

/** Where the file of @p variation is. */
DiagnosticReport::PathResult DiagnosticReport::filePathOf(
    const std::optional<Variations>& variation) const {
  if (!variation) {
    return fail("Unable to get path for report file variation that does not exist");
  }
  return _getReportRelativePath(variation->relative_path);
}

DiagnosticReport::PathResult DiagnosticReport::getReportFileVariationPath(std::string name,
                                                                          int variation) const {
  return filePathOf(getReportFileVariation(std::move(name), variation));
}

DiagnosticReport::PathResult DiagnosticReport::getReportFileBestVariationPath(
    std::string name) const {
  return filePathOf(getReportFileBestVariation(std::move(name)));
}

}  // namespace KELP::Diagnostic
