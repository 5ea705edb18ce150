#include "diagnostic/direntry.h"
#include "diagnostic/failure.h"
#include "diagnostic/removefiles.h"

#include <diagnostic/diagnosticdata.h>

#include <dirent.h>
#include <fcntl.h>

#include <functional>
#include <system_error>
#include <utility>

namespace KELP::Diagnostic {
namespace {

namespace fs = std::filesystem;
using Result = DiagnosticReport::Result;

bool isThere(const fs::path& path) {
  std::error_code ignored;
  return fs::exists(path, ignored);
}

bool isEmpty(const fs::path& path) {
  std::error_code error;
  return fs::is_empty(path, error) && !error;
}

/** A file of a report, and what is said when it cannot be removed. */
struct Remains {
  const char* name;
  OS::LogFormat<> failure;
};

constexpr Remains kRemains[] = {
    {DiagnosticReport::kReportLockFilename,
     "Failed to remove lock file from report while force deleting"},
    {DiagnosticReport::kReportMetadataFilename,
     "Failed to remove metadata file from report while force deleting"},
};

/**
 * Removes whatever is left of a report: first what makes it one, so that nobody opens half of it.
 * Removing the directory shares the message of removing the metadata file.
 */
Result removeRemains(const fs::path& directory) {
  if (!isThere(directory)) {
    return true;
  }
  std::error_code code;
  if (isEmpty(directory)) {
    code = removeReportDirectory(directory);
    if (code) {
      return fail(code, "Failed to remove empty report");
    }
    if (!isThere(directory)) {
      return true;
    }
  }
  // Nothing is removed where a link in the directory's place leads to; the link itself is, below.
  const OS::FileDescriptor opened = openDirectory(AT_FDCWD, directory);
  for (const Remains& remains : kRemains) {
    if (opened && isThere(directory / remains.name) &&
        (code = removeEntry(opened.get(), remains.name))) {
      return fail(code, remains.failure);
    }
  }
  if (isThere(directory)) {
    code = removeReportDirectory(directory);
    if (code) {
      return fail(code, "Failed to remove metadata file from report while force deleting");
    }
  }
  if (isThere(directory)) {
    return fail("Failed to force remove report directory");
  }
  return true;
}

/**
 * Calls @p visit with the name and status of each entry of @p root whose name does not begin with
 * ".". An entry without a status is visited too, after a line in the form @p line.
 */
template <typename Visit>
void forEachEntry(const fs::path& root, OS::LogFormat<const char*> line, const Visit& visit) {
  const DirectoryEntries directory(::opendir(root.c_str()));
  if (!directory) {
    return;
  }
  while (const dirent* const entry = ::readdir(directory.get())) {
    if (entry->d_name[0] == '.') {
      continue;
    }
    std::error_code error;
    const fs::file_status status = fs::status(root.native() + "/" + entry->d_name, error);
    if (error) {
      OS::logError(line, error.message().c_str());
    }
    visit(entry->d_name, status);
  }
}

}  // namespace

DiagnosticData::DiagnosticData(fs::path root) : root_(std::move(root)) {}

fs::path DiagnosticData::getRootPath() const {
  return root_;
}

std::unique_ptr<DiagnosticReport> DiagnosticData::openReport(ReportUuid id) const {
  auto report = std::make_unique<DiagnosticReport>();
  return report->_open(root_, id) ? std::move(report) : nullptr;
}

std::unique_ptr<DiagnosticReport> DiagnosticData::createReport(int appId, int buildId, int userId,
                                                               std::string deviceId,
                                                               std::string sessionId) const {
  ReportUuid id;
  id.randomize();
  return createReport(id, appId, buildId, userId, std::move(deviceId), std::move(sessionId));
}

std::unique_ptr<DiagnosticReport> DiagnosticData::createReport(ReportUuid id, int appId,
                                                               int buildId, int userId,
                                                               std::string deviceId,
                                                               std::string sessionId) const {
  if (id.isNull()) {
    OS::logError("Cannot create diagnostic report with null uuid");
    return nullptr;
  }
  if (isThere(root_ / id.toString())) {
    OS::logError(
        "Cannot create diagnostic report because another report already exists with the same uuid");
    return nullptr;
  }
  auto report = std::make_unique<DiagnosticReport>();
  const Result created =
      report->_create(root_, id, appId, buildId, userId, std::move(deviceId), std::move(sessionId));
  return created ? std::move(report) : nullptr;
}

Result DiagnosticData::deleteReport(ReportUuid id, bool force) const {
  DiagnosticReport report;
  if (Result opened = report._open(root_, id); opened) {
    if (!report.acquireWriteLock(false)) {
      return DiagnosticError(noCode(), "Unable to acquire write lock on report");
    }
    if (Result deleted = report.deleteReport(); !deleted && !force) {
      return deleted;
    }
  } else if (!force) {
    return opened;
  }
  return removeRemains(root_ / id.toString());
}

std::uint64_t DiagnosticData::countAllReports() const {
  std::uint64_t count = 0;
  forEachEntry(root_, "Error while counting diagnostic reports: %s",
               [&](const char*, const fs::file_status& status) {
                 count += fs::is_directory(status) ? 1 : 0;
               });
  return count;
}

std::vector<ReportUuid> DiagnosticData::getAllReportUuids() const {
  std::vector<ReportUuid> ids;
  forEachEntry(root_, "Error while enumerating diagnostic reports: %s",
               [&](const char* name, const fs::file_status& status) {
                 ReportUuid id;
                 if (fs::is_directory(status) && id.parse(name) && openReport(id)) {
                   ids.push_back(id);
                 }
               });
  return ids;
}

}  // namespace KELP::Diagnostic
