#include "check/subject.h"

#include <diagnostic/diagnosticreport.h>

#include <system_error>
#include <utility>

namespace KELP::Tool {
namespace {

namespace fs = std::filesystem;
using Diagnostic::DiagnosticReport;

void throwIf(const std::error_code& error) {
  if (error) {
    throw std::system_error(error);
  }
}

}  // namespace

fs::path Subject::storePath() const {
  return report.directory / DiagnosticReport::kReportMetadataFilename;
}

fs::path Subject::contentFiles() const {
  return report.directory / DiagnosticReport::kReportContentFilesDirectoryName;
}

bool Subject::hasReadableContents() const {
  return report.hasStore && !report.metadata.hasUnreadableContents();
}

Subject readSubject(const fs::path& root, const std::string& name, const LockTable& locks) {
  Subject subject;
  subject.report = readReport(root, name, locks);
  if (subject.report.soundness == Soundness::Unreadable) {
    throw std::system_error(subject.report.refusal);
  }
  subject.lock = certainEntryAt(subject.directory() / DiagnosticReport::kReportLockFilename);
  subject.store = certainEntryAt(subject.storePath());
  return subject;
}

std::optional<Entry> certainEntryAt(const fs::path& path) {
  std::error_code error;
  std::optional<Entry> entry = entryAt(path, error);
  throwIf(error);
  return entry;
}

std::vector<Entry> certainEntriesOf(const fs::path& directory) {
  std::error_code error;
  std::vector<Entry> entries = entriesOf(directory, error);
  throwIf(error);
  return entries;
}

void forEachCertainBelow(const fs::path& directory,
                         const std::function<void(const Entry&)>& visit) {
  throwIf(forEachBelow(directory, visit));
}

}  // namespace KELP::Tool
