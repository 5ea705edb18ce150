#include "check/subject.h"

#include <diagnostic/diagnosticreport.h>
#include <os/keyvaluestore.h>

#include <utility>

namespace KELP::Tool {
namespace {

namespace fs = std::filesystem;
using Diagnostic::DiagnosticReport;
using OS::KVStoreOpenOption;

/** What the creation of a report writes, in its order. */
constexpr const char* kCreationKeys[] = {
    "report_id",
    "app_id",
    "build_id",
    "user_id",
    "device_id",
    "session_id",
    "report_version",
    "created",
    "modified",
    "current_consent_level",
    "max_consent_level",
    "report_creation_complete",
    "user_interaction_complete",
    "data_collection_complete",
    "data_policy_applied",
    "upload_complete",
};

void readKeys(Subject& subject) {
  OS::KeyValueStore store(subject.store->path, "",
                          {KVStoreOpenOption::ReadOnly, KVStoreOpenOption::Shared});
  for (const char* const key : kCreationKeys) {
    if (!store.get(key)) {
      subject.missingKeys.emplace_back(key);
    }
  }
  subject.hasContents = store.get("report_contents").has_value();
}

}  // namespace

fs::path Subject::contentFiles() const {
  return report.directory / DiagnosticReport::kReportContentFilesDirectoryName;
}

Subject readSubject(const fs::path& root, const std::string& name, const LockTable& locks) {
  Subject subject;
  subject.report = readReport(root, name, locks);
  subject.lock = entryAt(subject.directory() / DiagnosticReport::kReportLockFilename);
  subject.store = entryAt(subject.directory() / DiagnosticReport::kReportMetadataFilename);
  subject.isReadable =
      subject.store && subject.store->isFile() && subject.report.soundness != Soundness::Damaged;
  if (subject.isReadable) {
    readKeys(subject);
  }
  return subject;
}

}  // namespace KELP::Tool
