#include "diagnostic/failure.h"

#include <diagnostic/diagnosticreport.h>
#include <utils/pathcontainment.h>

#include <algorithm>
#include <system_error>
#include <utility>

namespace KELP::Diagnostic {
namespace {

namespace fs = std::filesystem;

fs::path contentFileDir(const std::string& propertyName) {
  return fs::path(DiagnosticReport::kReportContentFilesDirectoryName) / propertyName;
}

fs::path fileVariationDir(const std::string& propertyName, int level) {
  return contentFileDir(propertyName) / std::to_string(level);
}

bool isWithin(const fs::path& path, const fs::path& directory) {
  return Utils::VerifyFilePathIsWithinRequiredDirectory(path.native(), directory.native(), false,
                                                        true);
}

/**
 * Whether @p path is within @p directory, and stays so when directories that are missing yet are
 * made.
 *
 * The check leaves ".." behind a missing directory to the text alone, and does not look at what
 * that leads to, which may be a symbolic link: a second look sees it. What the way to @p directory
 * itself leads to is its owner's choice. The system ends a path at a NUL, so one with a NUL is not
 * what it looks like.
 */
bool staysWithin(const fs::path& path, const fs::path& directory) {
  if (path.native().find('\0') != std::string::npos || !isWithin(path, directory)) {
    return false;
  }
  const auto [rest, below] =
      std::mismatch(directory.begin(), directory.end(), path.begin(), path.end());
  if (std::find(rest == directory.end() ? below : path.begin(), path.end(), "..") == path.end()) {
    return true;
  }
  const fs::path file = path.has_filename() ? path : path.parent_path();
  std::error_code error;
  const fs::path parent = fs::weakly_canonical(file.parent_path(), error);
  return !error && isWithin(parent / file.filename(), directory);
}

}  // namespace

DiagnosticReport::PathResult DiagnosticReport::_getReportDirPath() const {
  if (id_.isNull()) {
    return fail("Unable to get report path for report with null UUID");
  }
  char name[ReportUuid::kTextBufferSize];
  id_.unparseLower(name);
  return root_ / name;
}

DiagnosticReport::PathResult DiagnosticReport::_getReportRelativePath(fs::path relative) const {
  PathResult directory = _getReportDirPath();
  if (!directory) {
    return passOn(
        std::move(directory).error(),
        "Unable to prepare relative report path for report with unknown report directory");
  }
  fs::path candidate = *directory / relative;
  if (!staysWithin(candidate, *directory)) {
    return fail(noCode(), "Path is not within report directory",
                "Path: %s, is not within report directory: %s", candidate.c_str(),
                directory->c_str());
  }
  return candidate;
}

DiagnosticReport::PathResult DiagnosticReport::_getReportLockPath() const {
  return _getReportRelativePath(kReportLockFilename);
}

DiagnosticReport::PathResult DiagnosticReport::_getReportMetadataPath() const {
  return _getReportRelativePath(kReportMetadataFilename);
}

DiagnosticReport::PathResult DiagnosticReport::_getReportTmpDirPath() const {
  return _getReportRelativePath(kReportTmpDirectoryName);
}

DiagnosticReport::PathResult DiagnosticReport::_getReportContentFilesDirPath() const {
  return _getReportRelativePath(kReportContentFilesDirectoryName);
}

DiagnosticReport::PathResult DiagnosticReport::_getReportContentFileDirPath(
    std::string propertyName) const {
  return _getReportRelativePath(contentFileDir(propertyName));
}

DiagnosticReport::PathResult DiagnosticReport::_getReportFileVariationDirPath(
    std::string propertyName, int level) const {
  return _getReportRelativePath(fileVariationDir(propertyName, level));
}

DiagnosticReport::PathResult DiagnosticReport::_getReportFileVariationFilePath(
    std::string propertyName, int level, std::string fileName) const {
  return _getReportRelativePath(fileVariationDir(propertyName, level) / fileName);
}

}  // namespace KELP::Diagnostic
