#include "check/subject.h"

#include <diagnostic/diagnosticreport.h>

#include <utility>

namespace KELP::Tool {
namespace {

namespace fs = std::filesystem;
using Diagnostic::DiagnosticReport;
}  // namespace

fs::path Subject::contentFiles() const {
  return report.directory / DiagnosticReport::kReportContentFilesDirectoryName;
}

Subject readSubject(const fs::path& root, const std::string& name, const LockTable& locks) {
  Subject subject;
  subject.report = readReport(root, name, locks);
  subject.lock = entryAt(subject.directory() / DiagnosticReport::kReportLockFilename);
  subject.store = entryAt(subject.directory() / DiagnosticReport::kReportMetadataFilename);
  return subject;
}

}  // namespace KELP::Tool
